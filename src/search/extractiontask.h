#pragma once

#include <QList>
#include <QRunnable>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>

/// Text of one file; empty when it yields none.
struct ExtractResult
{
    QString runtimePath;
    QString text;
    bool isCut = false; ///< The document goes on behind the text.
};

/// What the extraction tasks of one build share: the files that wait, and the results for the
/// thread that writes them.
class Extraction
{
public:
    /// `maxContentBytes` as for the extractor. `stop` ends all waiting; it must outlive this.
    Extraction(int maxContentBytes, const std::atomic_bool &stop)
        : m_maxContentBytes(maxContentBytes)
        , m_stop(stop)
    {}
    /// After the last task: those end with the lock, so nothing of them can come later than this.
    ~Extraction() { const std::lock_guard<std::mutex> lock(m_mutex); }

    /// Before the first task runs.
    void addFile(const QString &path);
    int fileCount() const { return m_fileCount; }

    /// Called by a pool thread: extracts the next file that waits, unless a stop was asked for.
    /// Touches no database.
    void extractNext();
    /// Leaves a result; after a stop it is dropped. Waits while so much is lying here that the
    /// writer must catch up first, so that fast extraction does not fill the memory.
    void append(ExtractResult result);
    /// Everything that has arrived since the last call.
    QList<ExtractResult> takeResults();

private:
    bool takeFile(QString *path);

    const int m_maxContentBytes;
    const std::atomic_bool &m_stop;
    int m_fileCount = 0;
    std::mutex m_mutex; ///< Guards all below; held for a step or a swap only.
    /// UTF-8, each path ended by a zero: hundreds of thousands of strings would cost three times
    /// the memory.
    std::string m_paths;
    size_t m_nextPath = 0;
    std::condition_variable m_taken;
    QList<ExtractResult> m_results;
    qint64 m_characters = 0;
};

/// One for each file, deleted by the pool.
class ContentExtractTask : public QRunnable
{
public:
    explicit ContentExtractTask(Extraction &extraction) { m_extraction = &extraction; }

    void run() override { m_extraction.load()->extractNext(); }

private:
    /// Atomic only for race detectors, which cannot look into the pool: they see by it that the
    /// task has changed hands.
    std::atomic<Extraction *> m_extraction{nullptr};
};
