#include "search/searchworker.h"

#include "search/searchindexdb.h"

#include <QDebug>

namespace {

using Query = QVariantList (SearchIndexDB::*)(const QString &keyword, int limit,
                                              const QString &refine, QString *error);

struct Answer
{
    QVariantList results;
    QString error;
};

/// One search over a connection that is closed when it returns. `worker` marks the log lines.
Answer runSearch(const char *worker, const QString &dbPath, Query query, const QString &keyword,
                 int limit, const QString &refine)
{
    qDebug().nospace().noquote() << worker << " search called: keyword=" << keyword
                                 << " limit=" << limit << " refine=" << refine;
    Answer answer;
    SearchIndexDB db(dbPath);
    if (!db.open(&answer.error)) {
        qDebug().noquote() << worker << "DB open failed:" << answer.error;
        return answer;
    }
    answer.results = (db.*query)(keyword, limit, refine, &answer.error);
    qDebug().noquote() << worker << "results:" << answer.results.size() << "error:" << answer.error;
    return answer;
}

} // namespace

FileNameSearchWorker::FileNameSearchWorker(const QString &dbPath, QObject *parent)
    : QObject(parent)
    , m_dbPath(dbPath)
{}

void FileNameSearchWorker::search(const QString &keyword, int limit, const QString &refine)
{
    const Answer answer =
        runSearch("[NameWorker]", m_dbPath, &SearchIndexDB::searchByName, keyword, limit, refine);
    emit searchCompleted(answer.results, answer.error);
}

void FileNameSearchWorker::queryStats()
{
    SearchIndexDB db(m_dbPath);
    if (!db.open()) {
        emit statsReady(0, 0, 0, false);
        return;
    }
    QString error;
    const QVariantMap stats = db.indexStats(&error);
    emit statsReady(stats.value(QStringLiteral("fileCount")).toLongLong(),
                    stats.value(QStringLiteral("ftsCount")).toLongLong(),
                    stats.value(QStringLiteral("lastUpdatedMs")).toLongLong(), error.isEmpty());
}

FullTextSearchWorker::FullTextSearchWorker(const QString &dbPath, QObject *parent)
    : QObject(parent)
    , m_dbPath(dbPath)
{}

void FullTextSearchWorker::search(const QString &keyword, int limit, const QString &refine)
{
    const Answer answer =
        runSearch("[FTSWorker]", m_dbPath, &SearchIndexDB::searchByContent, keyword, limit, refine);
    emit searchCompleted(answer.results, answer.error);
}
