#include "share/loginthrottle.h"

#include <QMutexLocker>

#include <algorithm>

namespace share {

namespace {

constexpr int kFreeAttempts = 5;
constexpr qint64 kWindowMs = 60 * 1000;
constexpr qint64 kFirstWaitMs = 30 * 1000;
constexpr qint64 kLongestWaitMs = 60 * 60 * 1000;
constexpr int kMostDoublings = 7; ///< Beyond these the wait is the longest one.
constexpr qint64 kForgetMs = 60 * 60 * 1000;
constexpr int kMostAddresses = 4096;
constexpr qint64 kMsPerSecond = 1000;

qint64 waitMs(int earlierWaits)
{
    return qMin(kFirstWaitMs << qMin(earlierWaits, kMostDoublings), kLongestWaitMs);
}

} // namespace

LoginThrottle::Attempt LoginThrottle::begin(const QString &address, qint64 nowMs)
{
    QMutexLocker lock(&m_mutex);
    if (!m_records.contains(address))
        makeRoom(nowMs);
    Record &record = m_records[address];
    Attempt attempt;
    if (nowMs < record.blockedUntil) {
        const qint64 left = record.blockedUntil - nowMs;
        attempt.waitSeconds = static_cast<int>((left + kMsPerSecond - 1) / kMsPerSecond);
        return attempt;
    }
    if (nowMs - qMax(record.lastMs, record.blockedUntil) > kForgetMs)
        record = Record();
    attempt.number = ++m_lastNumber;
    record.lastMs = nowMs;
    record.wrong.append({attempt.number, nowMs});
    while (nowMs - record.wrong.first().timeMs > kWindowMs)
        record.wrong.removeFirst();
    if (record.waits > 0 || record.wrong.size() >= kFreeAttempts) {
        record.blockedUntil = nowMs + waitMs(record.waits);
        record.blockedBy = attempt.number;
        ++record.waits;
    }
    return attempt;
}

void LoginThrottle::succeed(const QString &address, const Attempt &attempt)
{
    QMutexLocker lock(&m_mutex);
    const auto found = m_records.find(address);
    if (found == m_records.end())
        return;
    const auto isIt = [&attempt](const Wrong &wrong) {
        return wrong.number == attempt.number;
    };
    found->wrong.erase(std::remove_if(found->wrong.begin(), found->wrong.end(), isIt),
                       found->wrong.end());
    if (found->blockedBy != attempt.number)
        return;
    found->blockedUntil = 0;
    found->blockedBy = 0;
    --found->waits;
}

void LoginThrottle::makeRoom(qint64 nowMs)
{
    if (m_records.size() < kMostAddresses)
        return;
    const auto end = [](const Record &record) {
        return qMax(record.lastMs, record.blockedUntil);
    };
    for (auto it = m_records.begin(); it != m_records.end();)
        it = nowMs - end(*it) > kWindowMs && it->waits == 0 ? m_records.erase(it) : std::next(it);
    if (m_records.size() >= kMostAddresses)
        m_records.erase(
            std::min_element(m_records.begin(), m_records.end(),
                             [end](const Record &a, const Record &b) { return end(a) < end(b); }));
}

} // namespace share
