#pragma once

#include <QList>
#include <QRunnable>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <mutex>

/// Text of one file; empty when it yields none.
struct ExtractResult
{
    QString runtimePath;
    QString text;
};

/// Where the tasks of one build leave their results for the thread that writes them.
class ExtractionResults
{
public:
    /// `stop` ends all waiting; it must outlive this object.
    explicit ExtractionResults(const std::atomic_bool &stop)
        : m_stop(stop)
    {}

    /// Called by a pool thread. Waits while so much text is lying here that the writer must catch
    /// up first, so that fast extraction does not fill the memory.
    void append(ExtractResult result);
    /// Everything that has arrived since the last call.
    QList<ExtractResult> take();

private:
    const std::atomic_bool &m_stop;
    std::mutex m_mutex; ///< Held for an append or a swap only.
    std::condition_variable m_taken;
    QList<ExtractResult> m_results;
    qint64 m_characters = 0;
};

/// Extracts one file on a pool thread. Touches no database.
class ContentExtractTask : public QRunnable
{
public:
    ContentExtractTask(const QString &path, int maxContentBytes, ExtractionResults &results,
                       const std::atomic_bool &stop);

    void run() override;

private:
    QString m_path;
    int m_maxContentBytes;
    const std::atomic_bool &m_stop;
    /// Written last and read first: a race detector that cannot look into the pool sees by it that
    /// the fields above have changed hands.
    std::atomic<ExtractionResults *> m_results{nullptr};
};
