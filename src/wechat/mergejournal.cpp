#include "wechat/mergejournal.h"

#include "wechat/spacereserve.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace wechat {

namespace {

constexpr int kVersion = 1;
constexpr qint64 kNoteBytes = 64; ///< Of noteHash().
constexpr qint64 kMaxJournalBytes = 256 * 1024 * 1024;

QString kindWord(JournalContent::Kind kind)
{
    return kind == JournalContent::Kind::Clean ? QStringLiteral("clean") : QStringLiteral("undo");
}

QJsonObject actionToJson(const JournalAction &action)
{
    QJsonArray groups;
    for (const QList<JournalPath> &group : action.groups) {
        QJsonArray paths;
        for (const JournalPath &path : group)
            paths.append(QJsonObject{{QStringLiteral("path"), path.path},
                                     {QStringLiteral("inode"), QString::number(path.inode)}});
        groups.append(paths);
    }
    return {{QStringLiteral("keepPath"), action.keepPath},
            {QStringLiteral("size"), QString::number(action.size)},
            {QStringLiteral("hash"), action.hash},
            {QStringLiteral("groups"), groups}};
}

QByteArray headLine(const JournalContent &content)
{
    QJsonArray actions;
    for (const JournalAction &action : content.actions)
        actions.append(actionToJson(action));
    const QJsonObject head{
        {QStringLiteral("version"), kVersion},
        {QStringLiteral("kind"), kindWord(content.kind)},
        {QStringLiteral("id"), content.id},
        {QStringLiteral("session"), content.session},
        {QStringLiteral("mountPoints"), QJsonArray::fromStringList(content.mountPoints)},
        {QStringLiteral("actions"), actions}};
    return QJsonDocument(head).toJson(QJsonDocument::Compact) + '\n';
}

bool readPath(const QJsonValue &value, JournalPath *path)
{
    const QJsonObject object = value.toObject();
    bool ok = false;
    path->path = object.value(QStringLiteral("path")).toString();
    path->inode = object.value(QStringLiteral("inode")).toString().toULongLong(&ok);
    return ok && isPlainPath(path->path);
}

bool readAction(const QJsonValue &value, JournalAction *action)
{
    const QJsonObject object = value.toObject();
    bool ok = false;
    action->keepPath = object.value(QStringLiteral("keepPath")).toString();
    action->size = object.value(QStringLiteral("size")).toString().toLongLong(&ok);
    action->hash = object.value(QStringLiteral("hash")).toString();
    if (!ok || !isPlainPath(action->keepPath) || !object.value(QStringLiteral("groups")).isArray())
        return false;
    const QJsonArray groups = object.value(QStringLiteral("groups")).toArray();
    for (const QJsonValue &group : groups) {
        QList<JournalPath> paths;
        const QJsonArray entries = group.toArray();
        for (const QJsonValue &entry : entries) {
            JournalPath path;
            if (!readPath(entry, &path))
                return false;
            paths.append(path);
        }
        action->groups.append(paths);
    }
    return true;
}

bool readHead(const QJsonObject &head, const QString &id, JournalContent *content)
{
    const QString kind = head.value(QStringLiteral("kind")).toString();
    content->kind = kind == kindWord(JournalContent::Kind::Undo) ? JournalContent::Kind::Undo
                                                                 : JournalContent::Kind::Clean;
    content->id = head.value(QStringLiteral("id")).toString();
    if (head.value(QStringLiteral("version")).toInt() != kVersion ||
        kind != kindWord(content->kind) || content->id != id ||
        !isGeneratedSessionId(content->id) || !head.value(QStringLiteral("actions")).isArray())
        return false;
    // Earlier versions wrote neither of these.
    content->session = head.value(QStringLiteral("session")).toString();
    content->mountPoints = plainPaths(head.value(QStringLiteral("mountPoints")));
    const QJsonArray actions = head.value(QStringLiteral("actions")).toArray();
    for (const QJsonValue &value : actions) {
        JournalAction action;
        if (!readAction(value, &action))
            return false;
        content->actions.append(action);
    }
    return true;
}

/// A line that the crash cut off is passed over.
void readHash(const QByteArray &line, JournalContent *content)
{
    const QJsonObject note = QJsonDocument::fromJson(line).object();
    const int index = note.value(QStringLiteral("action")).toInt(-1);
    if (index >= 0 && index < content->actions.size())
        content->actions[index].hash = note.value(QStringLiteral("hash")).toString();
}

} // namespace

MergeJournal::MergeJournal(FileOperations &operations, const CleanFolders &folders)
    : m_operations(operations)
    , m_folders(folders)
{}

MergeJournal::~MergeJournal()
{
    closeFile();
}

void MergeJournal::closeFile()
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

bool MergeJournal::begin(const JournalContent &content)
{
    const QString path = m_folders.journalPath(content.id);
    const QByteArray head = headLine(content);
    const qint64 room = head.size() + content.actions.size() * kNoteBytes;
    m_error = SpaceReserve(m_operations, m_folders).use(room, [&] { return create(path, head); });
    if (m_error == 0)
        m_path = path;
    return m_error == 0;
}

/// Returns 0 or an errno value; nothing is left then.
int MergeJournal::create(const QString &path, const QByteArray &head)
{
    if (!QDir().mkpath(m_folders.journal))
        return errno;
    const QByteArray name = QFile::encodeName(path);
    const QByteArray temporary = name + ".new";
    m_fd = m_operations.open(temporary, O_WRONLY | O_CREAT | O_EXCL | O_APPEND, 0600);
    if (m_fd < 0)
        return errno;
    const bool named = writeAll(m_operations, m_fd, head) && m_operations.fsync(m_fd) == 0 &&
                       m_operations.renameNoReplace(temporary, name) == 0;
    // The folders may be new as well.
    if (named && syncDirectory(m_operations, m_folders.journal) &&
        syncDirectory(m_operations, m_folders.top))
        return 0;
    const int code = errno;
    m_operations.unlink(named ? name : temporary);
    closeFile();
    return code;
}

void MergeJournal::noteHash(int action, const QString &hash)
{
    const QJsonObject note{{QStringLiteral("action"), action}, {QStringLiteral("hash"), hash}};
    if (m_fd >= 0 &&
        !writeAll(m_operations, m_fd, QJsonDocument(note).toJson(QJsonDocument::Compact) + '\n'))
        qWarning("[WechatClean] cannot add to the journal: %s", qPrintable(qt_error_string()));
}

void MergeJournal::clear()
{
    if (m_path.isEmpty())
        return;
    if (m_operations.unlink(QFile::encodeName(m_path)) != 0 ||
        !syncDirectory(m_operations, m_folders.journal))
        qWarning("[WechatClean] cannot remove the journal: %s", qPrintable(qt_error_string()));
    m_path.clear();
}

MergeJournal::ReadResult MergeJournal::read(const QString &path, JournalContent *content)
{
    const int fd =
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    QFile file;
    if (fd < 0 || !file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle))
        return errno == ELOOP ? ReadResult::Damaged : ReadResult::Unreadable;
    struct stat info;
    if (::fstat(fd, &info) != 0)
        return ReadResult::Unreadable;
    if (!S_ISREG(info.st_mode) || info.st_uid != ::geteuid() || info.st_size > kMaxJournalBytes)
        return ReadResult::Damaged;
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return ReadResult::Unreadable;
    const int end = bytes.indexOf('\n');
    const QJsonObject head = QJsonDocument::fromJson(bytes.left(qMax(0, end))).object();
    if (!readHead(head, QFileInfo(path).completeBaseName(), content))
        return ReadResult::Damaged;
    const QList<QByteArray> notes = bytes.mid(end + 1).split('\n');
    for (const QByteArray &note : notes)
        readHash(note, content);
    return ReadResult::Ok;
}

} // namespace wechat
