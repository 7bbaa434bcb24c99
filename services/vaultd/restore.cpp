#include "vaultd/restore.h"

#include "common/jsonfile.h"
#include "common/text.h"
#include "core/descriptor.h"
#include "core/pathutil.h"
#include "vaultd/attributes.h"
#include "vaultd/failure.h"
#include "vaultd/filecopy.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace services {
namespace vaultd {

namespace {

constexpr int kMaxNumber = 10000;

const QString kId = QStringLiteral("id");
const QString kTarget = QStringLiteral("target"); // Bytes as Latin-1.
const QString kPlaced = QStringLiteral("placed");
const QString kUser = QStringLiteral("user");

QString temporaryName(const QString &id)
{
    return QStringLiteral(".morvane_restore_") + id;
}

QString inside(const QString &dir, const QString &name)
{
    return QDir(dir).filePath(name);
}

bool removeFile(const QString &path)
{
    return ::unlink(QFile::encodeName(path).constData()) == 0 || errno == ENOENT;
}

QByteArray nameOf(const VaultFile &file)
{
    const QByteArray path = file.originalBytes;
    return path.isEmpty() ? QFile::encodeName(file.fileName) : path.mid(path.lastIndexOf('/') + 1);
}

/// The name's `number`-th stand-in, shortened where the number would make it too long. Its bytes
/// are numbered as if they were Latin-1, so that all of them come through.
QByteArray candidateName(const QByteArray &fileName, int number)
{
    constexpr int kMaxNameBytes = 255;
    const QString text = QString::fromLatin1(fileName);
    const QByteArray name = numberedName(text, number).toLatin1();
    return name.size() <= kMaxNameBytes ? name : numberedName(plainName(text), number).toLatin1();
}

QString folderOf(int fd)
{
    return QStringLiteral("/proc/self/fd/%1").arg(fd);
}

/// Opens a folder, and makes those that are missing on the way to it. With the rights that the
/// thread has now. -1 with errno.
int openFolder(const QByteArray &path, bool makesMissing)
{
    core::Descriptor dir(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const QList<QByteArray> names = path.split('/');
    for (const QByteArray &name : names) {
        if (name.isEmpty() || !dir.isOpen())
            continue;
        // What may be passed but not read must not be the end.
        int next = ::openat(dir.get(), name.constData(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (next < 0 && errno == ENOENT && makesMissing &&
            (::mkdirat(dir.get(), name.constData(), 0700) == 0 || errno == EEXIST))
            next = ::openat(dir.get(), name.constData(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        const int code = errno;
        dir.reset(next);
        errno = code;
    }
    return dir.isOpen() ? ::openat(dir.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
}

} // namespace

Restorer::Restorer(const VaultLayout &layout, const QString &journal, const std::atomic<bool> &stop)
    : m_layout(layout)
    , m_journal(journal)
    , m_stop(stop)
{}

bool Restorer::identify(qint64 recordUser, UserIdentity *user, QString *error) const
{
    const uid_t uid = m_layout.owner() == uid_t(-1) ? uid_t(recordUser) : m_layout.owner();
    if (uid != ::geteuid())
        return UserIdentity::find(uid, user, error);
    *user = UserIdentity::ofProcess();
    return true;
}

bool Restorer::restore(const VaultFile &file, const QString &targetDir, QString *placed,
                       QString *error) const
{
    const VaultLock lock(m_layout);
    Target target;
    if (!lock.isHeld(error) || !identify(file.user, &target.user, error))
        return false;
    if (!isPlainFile(m_layout.content(file.id)))
        return fail(error, QStringLiteral("保护区中没有文件内容"));
    const bool isBack = targetDir.isEmpty();
    const QByteArray former = file.pathBytes();
    if (isBack && former.isEmpty())
        return fail(error, QStringLiteral("不知道文件原来的位置，请选择目标目录"));
    target.path = isBack ? former.left(former.lastIndexOf('/') + 1) : QFile::encodeName(targetDir);
    core::Descriptor folder(-1);
    {
        const ActAs rights(target.user);
        if (!rights.isActive(error))
            return false;
        folder.reset(openFolder(target.path, isBack));
    }
    const QString shown = QFile::decodeName(target.path);
    if (!folder.isOpen())
        return fail(error, QStringLiteral("无法使用目标目录 %1").arg(shown), errno);
    target.folder = folderOf(folder.get());
    if (core::isInside(QFileInfo(target.folder).canonicalFilePath(), m_layout.root()))
        return fail(error, QStringLiteral("不能恢复到保护区内"));
    QByteArray name;
    if (!place(file, target, &name, error)) {
        reclaim(file.id);
        forgetNote();
        return false;
    }
    *placed = inside(shown, QFile::decodeName(name));
    // Until the name is on the medium, the vault's is the one that a power failure leaves.
    if (!syncDirectory(target.folder))
        return fail(
            error,
            QStringLiteral("已恢复到 %1，但未能写入磁盘，保护区中的文件仍保留").arg(*placed));
    if (!takeOut(file.id))
        return fail(error, QStringLiteral("已恢复到 %1，但无法移出保护区").arg(*placed), errno);
    forgetNote();
    return true;
}

/// The content first: a record alone is dropped at the next start, a content alone comes back.
bool Restorer::takeOut(const QString &id) const
{
    if (!removeFile(m_layout.content(id)))
        return false;
    syncDirectory(m_layout.folder());
    removeFile(m_layout.record(id));
    syncDirectory(m_layout.meta());
    return true;
}

bool Restorer::place(const VaultFile &file, const Target &target, QByteArray *name,
                     QString *error) const
{
    OutputFile output(target.folder, temporaryName(file.id));
    const QByteArray folder = QFile::encodeName(target.folder) + '/';
    for (int number = 0; number < kMaxNumber; ++number) {
        *name = candidateName(nameOf(file), number);
        struct stat taken;
        if (::lstat((folder + *name).constData(), &taken) == 0)
            continue;
        if (!note(file, target, *name, error) ||
            (!output.isOpen() && !fill(file, target, &output, error)))
            return false;
        const ActAs rights(target.user);
        if (!rights.isActive(error))
            return false;
        const OutputFile::Publish result = output.publish(*name, error);
        if (result == OutputFile::Publish::Done && !output.isNamed(*name))
            return fail(error, QStringLiteral("文件在恢复过程中被其他程序替换"));
        if (result != OutputFile::Publish::Taken)
            return result == OutputFile::Publish::Done;
    }
    return fail(error, QStringLiteral("目标目录中同名文件过多"));
}

/// The file under its temporary name. Who may make a file in the folder is found out by making one.
bool Restorer::fill(const VaultFile &file, const Target &target, OutputFile *output,
                    QString *error) const
{
    const QString temporary = inside(target.folder, temporaryName(file.id));
    const QString content = m_layout.content(file.id);
    {
        const ActAs rights(target.user);
        // Of an earlier restore whose journal is lost; the name is this file's own.
        if (!rights.isActive(error) || !removeFile(temporary) || !output->open(error, 0600))
            return false;
    }
    if (!output->becomeLink(content)) {
        struct stat info;
        const core::Descriptor source(m_layout.openContent(file.id));
        const bool isCloned =
            source.isOpen() && ::ioctl(output->descriptor(), FICLONE, source.get()) == 0;
        if (!isCloned && !copyInto(content, *output, &info, m_stop, error))
            return false;
        ::fremovexattr(output->descriptor(), "system.posix_acl_access");
        copyAttributes(source.get(), output->descriptor());
        const bool isKnown = ::fstat(source.get(), &info) == 0;
        if (isKnown && isCloned)
            output->setAttributes(info);
        if (file.ownerUid < 0)
            (void)!::fchown(output->descriptor(), target.user.uid, target.user.gid);
    }
    applyRecord(output->descriptor(), file, target.user.uid);
    return output->sync(error);
}

bool Restorer::note(const VaultFile &file, const Target &target, const QByteArray &name,
                    QString *error) const
{
    if (!writeJson(m_journal,
                   {{kId, file.id},
                    {kTarget, QString::fromLatin1(target.path)},
                    {kPlaced, QString::fromLatin1(name)},
                    {kUser, double(file.user)}},
                   error))
        return false;
    syncDirectory(QFileInfo(m_journal).absolutePath());
    return true;
}

void Restorer::forgetNote() const
{
    if (!removeFile(m_journal))
        qWarning() << "[Restorer] cannot remove" << m_journal;
}

/// A link that was not published may have got its former owner already.
void Restorer::reclaim(const QString &id) const
{
    const core::Descriptor content(m_layout.openContent(id));
    if (m_layout.dir() && content.isOpen()) {
        (void)!::fchown(content.get(), ::geteuid(), ::getegid());
        ::fremovexattr(content.get(), "system.posix_acl_access");
        ::fchmod(content.get(), 0600);
    }
}

void Restorer::finishInterrupted() const
{
    QJsonObject note;
    QString error;
    if (!QFile::exists(m_journal))
        return;
    const bool isRead = readJson(m_journal, &note, &error);
    const QString id = note.value(kId).toString();
    const QByteArray name = note.value(kPlaced).toString().toLatin1();
    Target target;
    target.path = note.value(kTarget).toString().toLatin1();
    const bool isFit =
        isRead && isId(id) && target.path.startsWith('/') && !name.isEmpty() && !name.contains('/');
    if (!isFit)
        qWarning() << "[Restorer] journal dropped, it cannot be read:" << error;
    if (!isFit || !identify(qint64(note.value(kUser).toDouble(-1)), &target.user, &error) ||
        !settle(id, target, name))
        reclaim(id);
    forgetNote();
}

/// True if the file was in its folder, or nothing of it.
bool Restorer::settle(const QString &id, const Target &place, const QByteArray &name) const
{
    Target target = place;
    QString error;
    core::Descriptor folder(-1);
    {
        const ActAs rights(target.user);
        if (!rights.isActive(&error))
            return false;
        folder.reset(openFolder(target.path, false));
        if (!folder.isOpen())
            return false;
        target.folder = folderOf(folder.get());
        const QString temporary = inside(target.folder, temporaryName(id));
        struct stat info;
        removeFile(temporary + QStringLiteral(".link"));
        if (look(temporary, &info)) {
            // The file had not got its name.
            if (!removeFile(temporary))
                qWarning() << "[Restorer] cannot remove" << temporary;
            syncDirectory(target.folder);
            return false;
        }
    }
    const QString placed = target.folder + QLatin1Char('/') + QFile::decodeName(name);
    if (!haveSameContent(placed, m_layout.content(id)) || !syncDirectory(target.folder))
        return false;
    qInfo() << "[Restorer] completed the restore to" << target.path << name;
    return takeOut(id);
}

bool checkTarget(const VaultLayout &layout, const QString &targetDir, QString *error)
{
    if (targetDir.isEmpty())
        return true;
    if (!QDir::isAbsolutePath(targetDir) || targetDir.contains(QChar(QChar::Null)))
        return fail(error, QStringLiteral("目标目录须为绝对路径"));
    UserIdentity user = UserIdentity::ofProcess();
    if (layout.owner() != ::geteuid() && !UserIdentity::find(layout.owner(), &user, error))
        return false;
    const ActAs rights(user);
    if (!rights.isActive(error))
        return false;
    const QFileInfo info(targetDir);
    if (!info.isDir())
        return fail(error, QStringLiteral("目标目录不存在：%1").arg(targetDir));
    if (::faccessat(AT_FDCWD, QFile::encodeName(targetDir).constData(), W_OK | X_OK, AT_EACCESS) !=
        0)
        return fail(error, QStringLiteral("目标目录不可写：%1").arg(targetDir));
    if (core::isInside(info.canonicalFilePath(), layout.root()))
        return fail(error, QStringLiteral("不能恢复到保护区内"));
    return true;
}

} // namespace vaultd
} // namespace services
