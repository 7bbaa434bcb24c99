#include "search/extractiontask.h"

#include "search/contentextractor.h"

#include <QMutexLocker>

#include <utility>

namespace {

/// 16 MiB in memory: several slices of what the database writes in the same time.
const qint64 maxWaitingCharacters = 8 * 1024 * 1024;
/// How long a waiting task takes at most to notice a stop.
const unsigned long stopPollMs = 50;

} // namespace

void ExtractionResults::append(ExtractResult result)
{
    QMutexLocker lock(&m_mutex);
    while (m_characters >= maxWaitingCharacters && !m_stop)
        m_taken.wait(&m_mutex, stopPollMs);
    m_characters += result.text.size();
    m_results.append(std::move(result));
}

QList<ExtractResult> ExtractionResults::take()
{
    QList<ExtractResult> taken;
    QMutexLocker lock(&m_mutex);
    taken.swap(m_results);
    m_characters = 0;
    m_taken.wakeAll();
    return taken;
}

ContentExtractTask::ContentExtractTask(const QString &path, int maxContentBytes,
                                       ExtractionResults &results, const std::atomic_bool &stop)
    : m_path(path)
    , m_maxContentBytes(maxContentBytes)
    , m_results(results)
    , m_stop(stop)
{}

void ContentExtractTask::run()
{
    if (m_stop)
        return;
    QString text = ContentExtractor::readContentSnippet(m_path, m_maxContentBytes, &m_stop);
    if (m_stop)
        return;
    m_results.append(ExtractResult{m_path, std::move(text)});
}
