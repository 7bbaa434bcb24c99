#pragma once

#include <QObject>
#include <QString>
#include <QVariantList>

/// Answers name searches on a thread of its own, each over a connection of its own. Slots are
/// called queued, by name.
class FileNameSearchWorker : public QObject
{
    Q_OBJECT

public:
    explicit FileNameSearchWorker(const QString &dbPath, QObject *parent = nullptr);

public slots:
    void search(const QString &keyword, int limit, const QString &refine);
    void queryStats();

signals:
    /// An error text may accompany a list that is not empty.
    void searchCompleted(const QVariantList &results, const QString &error);
    void statsReady(qint64 fileCount, qint64 ftsCount, qint64 lastUpdatedMs, bool ok);

private:
    QString m_dbPath;
};

/// Answers content searches, likewise.
class FullTextSearchWorker : public QObject
{
    Q_OBJECT

public:
    explicit FullTextSearchWorker(const QString &dbPath, QObject *parent = nullptr);

public slots:
    void search(const QString &keyword, int limit, const QString &refine);

signals:
    void searchCompleted(const QVariantList &results, const QString &error);

private:
    QString m_dbPath;
};
