#pragma once

#include "search/resultcheck.h"
#include "search/sqlinterrupter.h"

#include <QObject>
#include <QString>
#include <QVariantList>

#include <atomic>
#include <memory>

namespace search::names {
class NameIndex;
}

namespace search {

/// A line as it was typed, with all that its search needs.
struct LineRequest
{
    QString line;
    int limit = 0;
    QString refine;
    int number = 0;
};

} // namespace search

/// Answers name searches on a thread of its own, each over a connection of its own. Slots are
/// called queued, by name.
class FileNameSearchWorker : public QObject
{
    Q_OBJECT

public:
    explicit FileNameSearchWorker(const QString &dbPath, QObject *parent = nullptr);
    ~FileNameSearchWorker() override;

    /// Queues a search in the language of search lines; for any thread. What was asked for before
    /// is overtaken: it gets no answer, and a running search ends early. A line may be answered
    /// twice, again when the names have been read from the index for the first time.
    void requestLine(const QString &line, int limit, const QString &refine);
    /// Lines are answered without files that are gone, and the rows of a root that is not there
    /// have "offline" set; for any thread. See ResultCheck.
    void setResultCheck(const search::ResultCheck &check);

public slots:
    void search(const QString &keyword, int limit, const QString &refine);
    void queryStats();

signals:
    /// An error text may accompany a list that is not empty.
    void searchCompleted(const QVariantList &results, const QString &error);
    void statsReady(qint64 fileCount, qint64 ftsCount, qint64 lastUpdatedMs, bool ok);
    /// Before each statsReady(): documents of which only the beginning is indexed.
    void cutTextsCounted(qint64 count);

private:
    void searchLine(const search::LineRequest &request);

    QString m_dbPath;
    std::atomic<int> m_newestRequest{0};
    search::SqlInterrupter m_interrupter;
    search::ResultCheck m_check;
    search::LineRequest m_lastRequest; ///< Answered or being answered.
    std::unique_ptr<search::names::NameIndex> m_names;
};

/// Answers content searches, likewise.
class FullTextSearchWorker : public QObject
{
    Q_OBJECT

public:
    explicit FullTextSearchWorker(const QString &dbPath, QObject *parent = nullptr);

    /// Queues a search in the language of search lines; for any thread. What was asked for before
    /// is overtaken, likewise.
    void requestLine(const QString &line, int limit, const QString &refine);
    /// Likewise.
    void setResultCheck(const search::ResultCheck &check);

public slots:
    void search(const QString &keyword, int limit, const QString &refine);

signals:
    void searchCompleted(const QVariantList &results, const QString &error);

private:
    void searchLine(const search::LineRequest &request);

    QString m_dbPath;
    std::atomic<int> m_newestRequest{0};
    search::SqlInterrupter m_interrupter;
    search::ResultCheck m_check;
};
