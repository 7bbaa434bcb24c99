#include "vaultd/passwords.h"

#include "vaultd/failure.h"

#include <QDebug>
#include <QFile>
#include <QRandomGenerator>
#include <QSaveFile>

#include <algorithm>
#include <cerrno>
#include <crypt.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>

namespace services {
namespace vaultd {

namespace {

constexpr qint64 kMaxFileBytes = 1024 * 1024;
constexpr int kSaltLength = 16;
// Known by every crypt(3): SHA-512, slow enough to make guessing from a stolen file costly.
const char *const kMethod = "$6$rounds=100000$";

/// A fresh setting for crypt_r().
QByteArray newSetting()
{
    static const char letters[] =
        "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    QByteArray setting(kMethod);
    for (int i = 0; i < kSaltLength; ++i)
        setting.append(letters[QRandomGenerator::system()->bounded(64)]);
    return setting + '$';
}

/// Empty if the setting is none.
QByteArray hashOf(const QString &password, const QByteArray &setting)
{
    const auto data = std::make_unique<struct crypt_data>();
    const char *const hash =
        ::crypt_r(password.toUtf8().constData(), setting.constData(), data.get());
    return hash && *hash != '*' ? QByteArray(hash) : QByteArray();
}

bool isUser(const QString &user)
{
    return !user.isEmpty() && user.size() <= 256 &&
           std::none_of(user.begin(), user.end(),
                        [](QChar c) { return c.unicode() < 0x20 || c == QLatin1Char(':'); });
}

} // namespace

bool Passwords::check(const QString &user, const QString &password) const
{
    QList<QByteArray> lines;
    QString error;
    if (!read(&lines, &error))
        qWarning() << "[Passwords]" << error;
    const QByteArray prefix = user.toUtf8() + ':';
    QByteArray stored;
    for (const QByteArray &line : qAsConst(lines))
        if (isUser(user) && line.startsWith(prefix))
            stored = line.mid(prefix.size());
    const QByteArray hash = hashOf(password, stored.isEmpty() ? newSetting() : stored);
    return !hash.isEmpty() && !stored.isEmpty() && !password.contains(QChar(QChar::Null)) &&
           equalInConstantTime(hash, stored);
}

bool Passwords::set(const QString &user, const QString &password, QString *error) const
{
    if (!isUser(user))
        return fail(error, QStringLiteral("用户名为空或含有冒号、控制字符"));
    if (password.isEmpty() || password.contains(QChar(QChar::Null)))
        return fail(error, QStringLiteral("密码为空或含有空字符"));
    QList<QByteArray> lines;
    if (!read(&lines, error))
        return false;
    const QByteArray hash = hashOf(password, newSetting());
    if (hash.isEmpty())
        return fail(error, QStringLiteral("系统不支持所用的密码散列方法"));

    const QByteArray prefix = user.toUtf8() + ':';
    QByteArray text;
    for (const QByteArray &line : qAsConst(lines))
        if (!line.isEmpty() && !line.startsWith(prefix))
            text += line + '\n';
    text += prefix + hash + '\n';
    QSaveFile file(m_path);
    const bool isWritten = file.open(QIODevice::WriteOnly) &&
                           file.setPermissions(QFile::ReadOwner | QFile::WriteOwner) &&
                           file.write(text) == text.size() && file.flush() && file.commit();
    return isWritten ||
           fail(error, QStringLiteral("无法写入 %1：%2").arg(m_path, file.errorString()));
}

/// No lines, and no error, if there is no file yet.
bool Passwords::read(QList<QByteArray> *lines, QString *error) const
{
    lines->clear();
    const int fd = ::open(QFile::encodeName(m_path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return errno == ENOENT || fail(error, QStringLiteral("无法读取 %1").arg(m_path), errno);
    QFile file;
    struct stat info;
    if (!file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle) ||
        ::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > kMaxFileBytes)
        return fail(error, QStringLiteral("%1 不是密码文件").arg(m_path));
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return fail(error, QStringLiteral("%1 可被他人写入，不予采用").arg(m_path));
    *lines = file.readAll().split('\n');
    return true;
}

} // namespace vaultd
} // namespace services
