#include "search/extractiontask.h"

#include "search/extract/indextext.h"

#include <chrono>
#include <utility>

namespace {

/// 16 MiB in memory: several slices of what the database writes in the same time.
const qint64 maxWaitingCharacters = qint64(8) * 1024 * 1024;
/// How long a waiting task takes at most to notice a stop.
const std::chrono::milliseconds stopPoll(50);

} // namespace

void Extraction::addFile(const QString &path)
{
    const QByteArray bytes = path.toUtf8();
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_paths.append(bytes.constData(), size_t(bytes.size()) + 1);
    ++m_fileCount;
}

bool Extraction::takeFile(QString *path)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_stop)
        return false;
    *path = QString::fromUtf8(m_paths.c_str() + m_nextPath);
    m_nextPath = m_paths.find('\0', m_nextPath) + 1;
    return true;
}

void Extraction::extractNext()
{
    QString path;
    if (!takeFile(&path))
        return;
    search::IndexText read = search::readForIndex(path, m_maxContentBytes, &m_stop);
    append(ExtractResult{path, std::move(read.text), read.isCut});
}

void Extraction::append(ExtractResult result)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (m_characters >= maxWaitingCharacters && !m_stop)
        m_taken.wait_for(lock, stopPoll);
    if (m_stop)
        return;
    m_characters += result.runtimePath.size() + result.text.size();
    m_results.append(std::move(result));
}

QList<ExtractResult> Extraction::takeResults()
{
    QList<ExtractResult> taken;
    const std::lock_guard<std::mutex> lock(m_mutex);
    taken.swap(m_results);
    m_characters = 0;
    m_taken.notify_all();
    return taken;
}
