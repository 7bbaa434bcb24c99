#include "search/searchworker.h"

#include "search/names/namesearch.h"
#include "search/query/contentsearch.h"
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
    , m_names(std::make_unique<search::names::NameIndex>(dbPath, [this] {
        QMetaObject::invokeMethod(
            this,
            [this] {
                if (m_lastRequest.number > 0)
                    searchLine(m_lastRequest);
            },
            Qt::QueuedConnection);
    }))
{}

FileNameSearchWorker::~FileNameSearchWorker() = default;

void FileNameSearchWorker::requestLine(const QString &line, int limit, const QString &refine)
{
    const search::LineRequest request{line, limit, refine, ++m_newestRequest};
    m_interrupter.interrupt();
    QMetaObject::invokeMethod(
        this, [this, request] { searchLine(request); }, Qt::QueuedConnection);
}

void FileNameSearchWorker::setResultCheck(const search::ResultCheck &check)
{
    QMetaObject::invokeMethod(
        this, [this, check] { m_check = check; }, Qt::QueuedConnection);
}

void FileNameSearchWorker::searchLine(const search::LineRequest &request)
{
    const auto isOvertaken = [this, &request] {
        return m_newestRequest != request.number;
    };
    if (isOvertaken())
        return;
    m_lastRequest = request;
    SearchIndexDB db(m_dbPath);
    QVariantList results;
    QString error;
    if (db.open(&error)) {
        const search::SqlInterrupter::Hold hold(&m_interrupter, db.connection());
        results = m_check.filled(request.limit, [&](int limit) {
            return search::names::searchNames(db.connection(), m_names.get(), request.line, limit,
                                              request.refine, isOvertaken, &error);
        });
    }
    if (!isOvertaken())
        emit searchCompleted(results, error);
}

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
    emit cutTextsCounted(db.cutTextCount());
    emit statsReady(stats.value(QStringLiteral("fileCount")).toLongLong(),
                    stats.value(QStringLiteral("ftsCount")).toLongLong(),
                    stats.value(QStringLiteral("lastUpdatedMs")).toLongLong(), error.isEmpty());
}

FullTextSearchWorker::FullTextSearchWorker(const QString &dbPath, QObject *parent)
    : QObject(parent)
    , m_dbPath(dbPath)
{}

void FullTextSearchWorker::requestLine(const QString &line, int limit, const QString &refine)
{
    const search::LineRequest request{line, limit, refine, ++m_newestRequest};
    m_interrupter.interrupt();
    QMetaObject::invokeMethod(
        this, [this, request] { searchLine(request); }, Qt::QueuedConnection);
}

void FullTextSearchWorker::setResultCheck(const search::ResultCheck &check)
{
    QMetaObject::invokeMethod(
        this, [this, check] { m_check = check; }, Qt::QueuedConnection);
}

void FullTextSearchWorker::searchLine(const search::LineRequest &request)
{
    const auto isOvertaken = [this, &request] {
        return m_newestRequest != request.number;
    };
    if (isOvertaken())
        return;
    SearchIndexDB db(m_dbPath);
    QVariantList results;
    QString error;
    if (db.open(&error)) {
        const search::SqlInterrupter::Hold hold(&m_interrupter, db.connection());
        results = m_check.filled(request.limit, [&](int limit) {
            return search::query::searchContents(db.connection(), request.line, limit,
                                                 request.refine, isOvertaken, &error);
        });
    }
    if (!isOvertaken())
        emit searchCompleted(results, error);
}

void FullTextSearchWorker::search(const QString &keyword, int limit, const QString &refine)
{
    const Answer answer =
        runSearch("[FTSWorker]", m_dbPath, &SearchIndexDB::searchByContent, keyword, limit, refine);
    emit searchCompleted(answer.results, answer.error);
}
