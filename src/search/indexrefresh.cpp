#include "search/indexrefresh.h"

#include "core/pathutil.h"
#include "search/indexwrites.h"
#include "search/pathexclusion.h"
#include "search/searchindexdb.h"
#include "search/text/documenttext.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QVariant>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <sys/stat.h>

namespace search {
namespace {

constexpr int rowsPerRemoval = 500;
const QString textSettingsKey = QStringLiteral("textSettings");

size_t hashOf(const QString &path)
{
    return std::hash<std::string_view>()(std::string_view(
        reinterpret_cast<const char *>(path.constData()), size_t(path.size()) * sizeof(QChar)));
}

/// A file that cannot be seen is not gone.
bool isGone(const QString &path)
{
    struct stat status;
    return ::lstat(QFile::encodeName(path).constData(), &status) != 0 &&
           (errno == ENOENT || errno == ENOTDIR);
}

bool holdsSomething(const QString &root)
{
    return QDirIterator(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden).hasNext();
}

} // namespace

QString textSettings(int maxContentBytes)
{
    return QStringLiteral("%1 bytes, reader %2").arg(maxContentBytes).arg(text::readerVersion);
}

QStringList goneFilesOf(const QSqlDatabase &database, const QString &dir)
{
    QStringList gone;
    QSqlQuery query(database);
    query.setForwardOnly(true);
    // In the order of the index, "/" is followed by "0".
    if (!query.prepare(QStringLiteral("SELECT path FROM file_index WHERE path > ? AND path < ?")))
        return gone;
    query.addBindValue(QString(dir + QLatin1Char('/')));
    query.addBindValue(QString(dir + QLatin1Char('0')));
    query.exec();
    while (query.next()) {
        const QString path = query.value(0).toString();
        if (path.indexOf(QLatin1Char('/'), dir.size() + 1) < 0 && isGone(path))
            gone.append(path);
    }
    return gone;
}

KnownFiles::KnownFiles(const QSqlDatabase &database)
    : m_query(database)
{
    m_query.setForwardOnly(true);
}

void KnownFiles::open(const QString &textSettings)
{
    m_textSettings = textSettings;
    m_hasFiles = m_query.exec(QStringLiteral("SELECT 1 FROM file_index LIMIT 1")) && m_query.next();
    m_textsAreCurrent =
        m_query.exec(QStringLiteral("SELECT value FROM build_state WHERE key = '%1'")
                         .arg(textSettingsKey)) &&
        m_query.next() && m_query.value(0).toString() == textSettings;
    if (!m_query.prepare(QStringLiteral("SELECT size, modified_ms, content IS NOT NULL AND "
                                        "id NOT IN (SELECT id FROM stale_texts) "
                                        "FROM file_index WHERE path = ?")))
        m_hasFiles = false;
}

KnownFiles::Known KnownFiles::lookUp(const QString &storedPath, const QFileInfo &file)
{
    Known known;
    if (!m_hasFiles)
        return known;
    m_query.bindValue(0, storedPath);
    if (m_query.exec() && m_query.next()) {
        known.isUnchanged = m_query.value(0).toLongLong() == file.size() &&
                            m_query.value(1).toLongLong() == modifiedMs(file);
        known.hasText = known.isUnchanged && m_textsAreCurrent && m_query.value(2).toBool();
    }
    m_query.finish();
    return known;
}

void KnownFiles::noteTextSettings()
{
    if (m_textsAreCurrent)
        return;
    m_query.exec(
        QStringLiteral("CREATE TABLE IF NOT EXISTS build_state(key TEXT PRIMARY KEY, value TEXT)"));
    m_query.prepare(QStringLiteral("INSERT OR REPLACE INTO build_state VALUES(?, ?)"));
    m_query.addBindValue(textSettingsKey);
    m_query.addBindValue(m_textSettings);
    m_query.exec(); // Without it the next refresh reads them once more.
    m_query.finish();
}

void MetPaths::add(const QString &path)
{
    m_hashes.push_back(hashOf(path));
    m_isSorted = false;
}

bool MetPaths::contains(const QString &path)
{
    if (!m_isSorted)
        std::sort(m_hashes.begin(), m_hashes.end());
    m_isSorted = true;
    return std::binary_search(m_hashes.cbegin(), m_hashes.cend(), hashOf(path));
}

bool pruneGoneFiles(SearchIndexDB *index, const QStringList &roots, const QString &storedPrefix,
                    const PathExclusion &exclusion, MetPaths *met, const std::atomic_bool &stop,
                    QString *error)
{
    QStringList full;
    for (const QString &root : roots) {
        if (holdsSomething(root))
            full.append(root);
    }
    QStringList gone;
    QSqlQuery query(index->connection());
    query.setForwardOnly(true);
    bool ok = query.exec(QStringLiteral("SELECT path FROM file_index"));
    while (ok && !stop && query.next()) {
        const QString stored = query.value(0).toString();
        if (met->contains(stored))
            continue;
        const QString path = storedPrefix.isEmpty() ? stored : storedPrefix + stored;
        const bool isBelow = std::any_of(full.cbegin(), full.cend(), [&](const QString &root) {
            return core::isInside(path, root);
        });
        if (isBelow && (isGone(path) || exclusion.excludes(path)))
            gone.append(stored);
    }
    if (query.lastError().isValid()) {
        if (error)
            *error = query.lastError().text();
        return false;
    }
    query.finish();
    for (int i = 0; ok && !stop && i < gone.size(); i += rowsPerRemoval)
        ok = index->removeFiles(gone.mid(i, rowsPerRemoval), error);
    return ok;
}

} // namespace search
