#include "vaultd/index/vaultindex.h"

#include "vaultd/failure.h"

#include <QDebug>
#include <QFile>
#include <QHash>

#include <algorithm>
#include <vector>

namespace services::vaultd {

namespace {

constexpr int kFormat = 3;
constexpr qint64 kSpanSeconds = 256; ///< Files deleted within one are counted together.
constexpr qint64 kNsPerSecond = 1000LL * 1000 * 1000;

// The names are searched apart, so that a search reads no more than it has to.
constexpr char kSchema[] =
    "CREATE TABLE files(number INTEGER PRIMARY KEY, id TEXT NOT NULL UNIQUE, name TEXT NOT NULL,"
    " path TEXT NOT NULL, size INTEGER NOT NULL, deleted INTEGER NOT NULL, kept INTEGER NOT NULL,"
    " inode INTEGER NOT NULL, modified INTEGER NOT NULL, replaced INTEGER NOT NULL,"
    " sealed INTEGER NOT NULL, vault BLOB NOT NULL);"
    "CREATE TABLE names(number INTEGER PRIMARY KEY, deleted INTEGER NOT NULL,"
    " folded TEXT NOT NULL);"
    "CREATE TABLE spans(span INTEGER PRIMARY KEY, count INTEGER NOT NULL);"
    "CREATE TABLE totals(name TEXT PRIMARY KEY, value);"
    "INSERT INTO totals VALUES('count', 0), ('bytes', 0), ('stamp', x'');"
    "CREATE INDEX newest ON files(deleted DESC, id);"
    "CREATE INDEX oldest ON files(kept, id);"
    "CREATE INDEX replaced ON files(kept, id) WHERE replaced;"
    "CREATE INDEX inodes ON files(inode);"
    "CREATE INDEX unsealed ON files(number) WHERE NOT sealed;"
    "CREATE INDEX others ON files(vault) WHERE vault <> x'';";

#define MORVANE_COLUMNS " id, name, path, size, deleted, kept, replaced, vault "

VaultFile fileAt(const SqliteQuery &query)
{
    VaultFile file;
    file.id = query.text(0);
    file.fileName = query.text(1);
    file.originalPath = query.text(2);
    file.fileSize = query.number(3);
    file.deletedAt = query.number(4);
    file.keptSince = query.number(5);
    file.isReplaced = query.number(6) != 0;
    file.vaultParent = query.bytes(7);
    return file;
}

QVector<VaultFile> allOf(SqliteQuery &query)
{
    QVector<VaultFile> files;
    while (query.next())
        files.append(fileAt(query));
    return files;
}

/// Also of times before the epoch.
qint64 spanOf(qint64 deletedAt)
{
    return deletedAt >= 0 ? deletedAt / kSpanSeconds : -((-deletedAt - 1) / kSpanSeconds) - 1;
}

qint64 nanoseconds(const struct timespec &time)
{
    return qint64(quint64(time.tv_sec) * kNsPerSecond + quint64(time.tv_nsec));
}

/// A name is part of its path unless the file is listed under a stand-in.
QString folded(const VaultFile &file)
{
    return (file.originalPath.endsWith(QLatin1Char('/') + file.fileName)
                ? file.originalPath
                : file.fileName + QLatin1Char('\n') + file.originalPath)
        .toCaseFolded();
}

/// Changes of one transaction.
class Writer
{
public:
    explicit Writer(const Sqlite &db)
        : m_size(db, "SELECT number, size, deleted FROM files WHERE id = ?")
        , m_removeFile(db, "DELETE FROM files WHERE number = ?")
        , m_removeName(db, "DELETE FROM names WHERE number = ?")
        , m_addFile(db, "INSERT INTO files(id, name, path, size, deleted, kept, inode, modified,"
                        " replaced, sealed, vault) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
        , m_addName(db,
                    "INSERT INTO names(number, deleted, folded) VALUES(last_insert_rowid(), ?, ?)")
        , m_makeSpan(db, "INSERT OR IGNORE INTO spans VALUES(?, 0)")
        , m_addToSpan(db, "UPDATE spans SET count = count + ? WHERE span = ?")
        , m_dropSpan(db, "DELETE FROM spans WHERE span = ? AND count <= 0")
        , m_addTotal(db, "UPDATE totals SET value = value + ? WHERE name = ?")
    {}

    bool remove(const QString &id)
    {
        m_size.bind(id);
        const bool isThere = m_size.next();
        const qint64 number = isThere ? m_size.number(0) : 0;
        if (isThere) {
            --m_count;
            m_bytes -= m_size.number(1);
            --m_spans[spanOf(m_size.number(2))];
        }
        m_size.reset();
        return !isThere || (m_removeFile.bind(number).run() && m_removeName.bind(number).run());
    }
    bool add(const IndexedFile &indexed)
    {
        const VaultFile &file = indexed.file;
        ++m_count;
        m_bytes += file.fileSize;
        ++m_spans[spanOf(file.deletedAt)];
        return m_addFile.bind(file.id)
                   .bind(file.fileName)
                   .bind(file.originalPath)
                   .bind(file.fileSize)
                   .bind(file.deletedAt)
                   .bind(file.keptSince)
                   .bind(qint64(indexed.originalInode))
                   .bind(nanoseconds(file.modified))
                   .bind(qint64(file.isReplaced))
                   .bind(qint64(indexed.isSealed))
                   .bindBytes(file.vaultParent)
                   .run() &&
               m_addName.bind(file.deletedAt).bind(folded(file)).run();
    }
    bool finish()
    {
        for (auto it = m_spans.cbegin(); it != m_spans.cend(); ++it)
            if (!m_makeSpan.bind(it.key()).run() || !m_addToSpan.bind(*it).bind(it.key()).run() ||
                !m_dropSpan.bind(it.key()).run())
                return false;
        return m_addTotal.bind(m_count).bind(QStringLiteral("count")).run() &&
               m_addTotal.bind(m_bytes).bind(QStringLiteral("bytes")).run();
    }

private:
    SqliteQuery m_size;
    SqliteQuery m_removeFile;
    SqliteQuery m_removeName;
    SqliteQuery m_addFile;
    SqliteQuery m_addName;
    SqliteQuery m_makeSpan;
    SqliteQuery m_addToSpan;
    SqliteQuery m_dropSpan;
    SqliteQuery m_addTotal;
    QHash<qint64, qint64> m_spans;
    qint64 m_count = 0;
    qint64 m_bytes = 0;
};

} // namespace

VaultIndex::VaultIndex(const QString &stateDir)
    : m_path(pathIn(stateDir))
{}

QString VaultIndex::pathIn(const QString &stateDir)
{
    return stateDir + QStringLiteral("/index.db");
}

bool VaultIndex::open(QString *error)
{
    if (m_db.open(m_path, false) && isUsable())
        return true;
    m_db.close();
    for (const char *suffix : {"", "-wal", "-shm"})
        QFile::remove(m_path + QLatin1String(suffix));
    return (m_db.open(m_path, false) && create()) ||
           fail(error, QStringLiteral("无法创建索引 %1：%2").arg(m_path, m_db.error()));
}

bool VaultIndex::openForReading()
{
    return m_db.isOpen() || m_db.open(m_path, true);
}

bool VaultIndex::isUsable()
{
    SqliteQuery query(m_db, "PRAGMA user_version");
    const bool isOurs = query.next() && query.number(0) == kFormat;
    query.reset();
    return isOurs && m_db.run("PRAGMA synchronous = NORMAL");
}

bool VaultIndex::create()
{
    const QByteArray version = "PRAGMA user_version = " + QByteArray::number(kFormat);
    QFile::setPermissions(m_path, QFile::ReadOwner | QFile::WriteOwner);
    return m_db.run("PRAGMA journal_mode = WAL") && m_db.run("PRAGMA synchronous = NORMAL") &&
           m_db.run("BEGIN") && m_db.run(kSchema) && m_db.run(version.constData()) &&
           m_db.run("COMMIT");
}

bool VaultIndex::change(const QStringList &removed, const QVector<IndexedFile> &added,
                        QString *error)
{
    if (removed.isEmpty() && added.isEmpty())
        return true;
    bool isDone = m_db.run("BEGIN IMMEDIATE");
    if (isDone) {
        Writer writer(m_db);
        for (const QString &id : removed)
            isDone = isDone && writer.remove(id);
        for (const IndexedFile &file : added)
            isDone = isDone && writer.remove(file.file.id) && writer.add(file);
        isDone = isDone && writer.finish();
    }
    if (isDone && m_db.run("COMMIT"))
        return true;
    fail(error, QStringLiteral("无法写入索引：%1").arg(m_db.error()));
    m_db.run("ROLLBACK");
    return false;
}

bool VaultIndex::setSealed(const QStringList &ids)
{
    if (ids.isEmpty())
        return true;
    bool isDone = m_db.run("BEGIN IMMEDIATE");
    if (isDone) {
        SqliteQuery query(m_db, "UPDATE files SET sealed = 1 WHERE id = ?");
        for (const QString &id : ids)
            isDone = isDone && query.bind(id).run();
    }
    if (isDone && m_db.run("COMMIT"))
        return true;
    m_db.run("ROLLBACK");
    return false;
}

bool VaultIndex::setReplaced(const QString &id)
{
    return SqliteQuery(m_db, "UPDATE files SET replaced = 1 WHERE id = ?").bind(id).run();
}

bool VaultIndex::contains(const QString &id) const
{
    return SqliteQuery(m_db, "SELECT 1 FROM files WHERE id = ?").bind(id).next();
}

bool VaultIndex::find(const QString &id, VaultFile *file) const
{
    SqliteQuery query(m_db, "SELECT" MORVANE_COLUMNS "FROM files WHERE id = ?");
    if (!query.bind(id).next())
        return false;
    *file = fileAt(query);
    return true;
}

bool VaultIndex::holds(const struct stat &file, const QByteArray &path) const
{
    return SqliteQuery(m_db, "SELECT 1 FROM files WHERE inode = ? AND modified = ? AND size = ?"
                             " AND path = ?")
        .bind(qint64(file.st_ino))
        .bind(nanoseconds(file.st_mtim))
        .bind(qint64(file.st_size))
        .bind(QString::fromUtf8(path))
        .next();
}

QSet<QString> VaultIndex::ids(const QByteArray &vaultParent) const
{
    QSet<QString> ids;
    SqliteQuery query(m_db, "SELECT id FROM files WHERE vault = ?");
    query.bindBytes(vaultParent);
    while (query.next())
        ids.insert(query.text(0));
    return ids;
}

QStringList VaultIndex::allIds() const
{
    QStringList ids;
    SqliteQuery query(m_db, "SELECT id FROM files");
    while (query.next())
        ids.append(query.text(0));
    return ids;
}

QSet<QByteArray> VaultIndex::vaults() const
{
    QSet<QByteArray> parents;
    SqliteQuery query(m_db, "SELECT DISTINCT vault FROM files WHERE vault <> x''");
    while (query.next())
        parents.insert(query.bytes(0));
    return parents;
}

QVector<VaultFile> VaultIndex::files() const
{
    SqliteQuery query(m_db, "SELECT" MORVANE_COLUMNS "FROM files");
    return allOf(query);
}

QVector<VaultFile> VaultIndex::unsealed(qint64 *number, int limit) const
{
    SqliteQuery query(m_db, "SELECT" MORVANE_COLUMNS ", number FROM files"
                            " WHERE NOT sealed AND number > ? ORDER BY number LIMIT ?");
    query.bind(*number).bind(limit);
    QVector<VaultFile> files;
    while (query.next()) {
        files.append(fileAt(query));
        *number = query.number(8);
    }
    return files;
}

QVector<VaultFile> VaultIndex::page(int limit, int offset, const QString &filter,
                                    int *totalCount) const
{
    if (!filter.isEmpty())
        return matches(limit, offset, filter.toCaseFolded().toUtf8(), totalCount);
    *totalCount = count();
    const int length = qMin(limit, *totalCount - offset);
    if (length <= 0)
        return QVector<VaultFile>();
    // From whichever end is nearer. Whole spans are passed over by their counts, and within one
    // what is passed over is read from the order alone.
    const int after = *totalCount - offset - length;
    const bool isFromEnd = after < offset;
    int left = isFromEnd ? after : offset;
    const qint64 span = passSpans(isFromEnd, &left);
    SqliteQuery query(
        m_db, isFromEnd
                  ? "SELECT" MORVANE_COLUMNS "FROM files WHERE number IN (SELECT number FROM files"
                    " WHERE deleted >= ? ORDER BY deleted, id DESC LIMIT ? OFFSET ?)"
                    " ORDER BY deleted DESC, id"
                  : "SELECT" MORVANE_COLUMNS "FROM files WHERE number IN (SELECT number FROM files"
                    " WHERE deleted < ? ORDER BY deleted DESC, id LIMIT ? OFFSET ?)"
                    " ORDER BY deleted DESC, id");
    query.bind((isFromEnd ? span : span + 1) * kSpanSeconds).bind(length).bind(left);
    return allOf(query);
}

/// The first span, from one end of the list, that is not passed over whole. *left: how many files
/// are to be passed over, in all and then from that span on.
qint64 VaultIndex::passSpans(bool isFromEnd, int *left) const
{
    SqliteQuery spans(m_db, isFromEnd ? "SELECT span, count FROM spans ORDER BY span"
                                      : "SELECT span, count FROM spans ORDER BY span DESC");
    qint64 span = 0;
    while (spans.next()) {
        span = spans.number(0);
        if (spans.number(1) > *left)
            break;
        *left -= int(spans.number(1));
    }
    return span;
}

/// One pass over all names; only the files of the page are read whole.
QVector<VaultFile> VaultIndex::matches(int limit, int offset, const QByteArray &folded,
                                       int *totalCount) const
{
    std::vector<std::pair<qint64, qint64>> found; // time downwards, number
    SqliteQuery names(m_db, "SELECT number, deleted, folded FROM names");
    while (names.next())
        if (names.contains(2, folded))
            found.emplace_back(-names.number(1), names.number(0));
    *totalCount = int(found.size());
    const size_t from = qMin(found.size(), size_t(offset));
    const size_t to = qMin(found.size(), from + size_t(limit));
    std::partial_sort(found.begin(), found.begin() + ptrdiff_t(to), found.end());
    QVector<VaultFile> files;
    SqliteQuery query(m_db, "SELECT" MORVANE_COLUMNS "FROM files WHERE number = ?");
    for (size_t i = from; i < to; ++i) {
        if (query.bind(found[i].second).next())
            files.append(fileAt(query));
        query.reset();
    }
    return files;
}

qint64 VaultIndex::total(const char *name) const
{
    SqliteQuery query(m_db, "SELECT value FROM totals WHERE name = ?");
    return query.bind(QString::fromLatin1(name)).next() ? query.number(0) : 0;
}

void VaultIndex::visitForExpiry(qint64 oldest,
                                const std::function<bool(const VaultFile &)> &visit) const
{
    const struct
    {
        const char *sql;
        bool isForOld;
    } passes[] = {
        {"SELECT" MORVANE_COLUMNS "FROM files WHERE kept <= ? ORDER BY kept, id", true},
        {"SELECT" MORVANE_COLUMNS "FROM files WHERE replaced AND kept > ? ORDER BY kept, id",
         false},
        {"SELECT" MORVANE_COLUMNS "FROM files WHERE kept > ? AND NOT replaced ORDER BY kept, id",
         false},
    };
    for (const auto &pass : passes) {
        SqliteQuery query(m_db, pass.sql);
        query.bind(oldest);
        while (query.next())
            if (!visit(fileAt(query)))
                return;
    }
}

QByteArray VaultIndex::stamp() const
{
    SqliteQuery query(m_db, "SELECT value FROM totals WHERE name = 'stamp'");
    return query.next() ? query.bytes(0) : QByteArray();
}

bool VaultIndex::setStamp(const QByteArray &stamp)
{
    return SqliteQuery(m_db, "UPDATE totals SET value = ? WHERE name = 'stamp'")
        .bindBytes(stamp)
        .run();
}

} // namespace services::vaultd
