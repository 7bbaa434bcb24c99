#include "vaultd/keep/keeplog.h"

#include "common/text.h"
#include "core/posixfile.h"

#include <QFile>
#include <QHash>
#include <QJsonDocument>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace services::vaultd {

namespace {

constexpr qint64 kMaxBytes = 256LL * 1024 * 1024;

const QString kForget = QStringLiteral("forget");
// What is of no use once the record is made.
const QString kVaultParent = QStringLiteral("vaultParent");
const QString kDeletedFrom = QStringLiteral("deletedFrom");

QByteArray lineOf(const VaultFile &file)
{
    QJsonObject record = file.toRecord();
    if (!file.vaultParent.isEmpty())
        record.insert(kVaultParent, QString::fromLatin1(file.vaultParent.toBase64()));
    if (!file.deletedFrom.isEmpty())
        record.insert(kDeletedFrom, QString::fromLatin1(file.deletedFrom.toBase64()));
    return QJsonDocument(record).toJson(QJsonDocument::Compact) + '\n';
}

} // namespace

KeepLog::KeepLog(const QString &stateDir)
    : m_path(QFile::encodeName(stateDir + QStringLiteral("/kept.log")))
{}

int KeepLog::open()
{
    m_file.reset(
        ::open(m_path.constData(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0600));
    struct stat info;
    if (!m_file.isOpen() || ::fstat(m_file.get(), &info) != 0)
        return errno;
    m_size = qint64(info.st_size);
    // A line that a crash cut short must not swallow the next one.
    return m_size > 0 ? append("\n") : 0;
}

int KeepLog::append(const QByteArray &line)
{
    // A line that does not fit whole is taken back.
    const int code = core::writeAll(m_file.get(), line);
    if (code == 0)
        m_size += line.size();
    else if (::ftruncate(m_file.get(), off_t(m_size)) != 0)
        return errno;
    return code;
}

int KeepLog::note(const VaultFile &file)
{
    return append(lineOf(file));
}

int KeepLog::forget(const QString &id)
{
    return append("{\"forget\":\"" + id.toUtf8() + "\"}\n");
}

int KeepLog::duplicate() const
{
    return ::fcntl(m_file.get(), F_DUPFD_CLOEXEC, 0);
}

int KeepLog::restart(const QVector<VaultFile> &files)
{
    // An earlier one that was not dropped: its files have no lasting records yet.
    if (::access((m_path + ".former").constData(), F_OK) == 0)
        return EEXIST;
    if (::rename(m_path.constData(), (m_path + ".former").constData()) != 0)
        return errno;
    int code = open();
    for (const VaultFile &file : files)
        if (code == 0)
            code = note(file);
    return code;
}

void KeepLog::dropFormer()
{
    ::unlink((m_path + ".former").constData());
}

QVector<VaultFile> KeepLog::read() const
{
    QVector<VaultFile> files;
    QHash<QString, int> places;
    for (const QByteArray &path : {m_path + ".former", m_path}) {
        QByteArray bytes;
        if (core::readFile(path, kMaxBytes, &bytes) != 0)
            continue;
        const QList<QByteArray> lines = bytes.split('\n');
        for (const QByteArray &line : lines) {
            const QJsonObject record = QJsonDocument::fromJson(line).object();
            const int forgotten = places.value(record.value(kForget).toString(), -1);
            if (forgotten >= 0)
                files[forgotten].id.clear();
            VaultFile file;
            QString error;
            const QString id = record.value(QLatin1String("id")).toString();
            if (!isId(id) || !parseRecord(record, id, &file, &error))
                continue;
            file.vaultParent =
                QByteArray::fromBase64(record.value(kVaultParent).toString().toLatin1());
            file.deletedFrom =
                QByteArray::fromBase64(record.value(kDeletedFrom).toString().toLatin1());
            file.keptSince = file.deletedAt;
            // A later line of a file counts.
            if (!places.contains(id)) {
                places.insert(id, files.size());
                files.append(file);
            }
            files[places.value(id)] = file;
        }
    }
    QVector<VaultFile> left;
    for (const VaultFile &file : qAsConst(files))
        if (!file.id.isEmpty())
            left.append(file);
    return left;
}

} // namespace services::vaultd
