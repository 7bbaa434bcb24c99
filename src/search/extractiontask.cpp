#include "search/extractiontask.h"

#include "search/contentextractor.h"

#include <chrono>
#include <utility>

namespace {

/// 16 MiB in memory: several slices of what the database writes in the same time.
const qint64 maxWaitingCharacters = 8 * 1024 * 1024;
/// How long a waiting task takes at most to notice a stop.
const std::chrono::milliseconds stopPoll(50);

} // namespace

void ExtractionResults::append(ExtractResult result)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (m_characters >= maxWaitingCharacters && !m_stop)
        m_taken.wait_for(lock, stopPoll);
    m_characters += result.text.size();
    m_results.append(std::move(result));
}

QList<ExtractResult> ExtractionResults::take()
{
    QList<ExtractResult> taken;
    const std::lock_guard<std::mutex> lock(m_mutex);
    taken.swap(m_results);
    m_characters = 0;
    m_taken.notify_all();
    return taken;
}

ContentExtractTask::ContentExtractTask(const QString &path, int maxContentBytes,
                                       ExtractionResults &results, const std::atomic_bool &stop)
    : m_path(path)
    , m_maxContentBytes(maxContentBytes)
    , m_stop(stop)
{
    m_results = &results;
}

void ContentExtractTask::run()
{
    ExtractionResults *results = m_results;
    if (m_stop)
        return;
    QString text = ContentExtractor::readContentSnippet(m_path, m_maxContentBytes, &m_stop);
    if (m_stop)
        return;
    results->append(ExtractResult{m_path, std::move(text)});
}
