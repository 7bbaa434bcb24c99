#include "recoveryd/scan/scantask.h"

#include "recoveryd/scan/scanplan.h"

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kTellEveryMs = 200;

} // namespace

ScanTask::ScanTask(const QString &sessionId, const Device &device, const ScanRequest &request,
                   std::shared_ptr<WorkControl> control, Mailbox &inbox, ScanListener &listener)
    : m_sessionId(sessionId)
    , m_device(device)
    , m_request(request)
    , m_control(std::move(control))
    , m_inbox(inbox)
    , m_listener(listener)
{}

void ScanTask::run()
{
    m_clock.start();
    m_phaseText = QStringLiteral("正在读取分区结构");
    tellProgress();
    const std::vector<std::unique_ptr<Scanner>> scanners = planScan(m_device, m_request);
    for (const auto &scanner : scanners)
        m_total += scanner->totalWork();

    ScanOutcome outcome;
    for (const auto &scanner : scanners) {
        m_phaseText = scanner->phaseText();
        tellProgress();
        if (!scanner->scan(*this, &outcome.error)) {
            outcome.kind = ScanOutcome::Kind::Failed;
            break;
        }
        m_doneBefore += scanner->totalWork();
        if (!mayGoOn())
            break;
    }
    if (m_control->isStopped())
        outcome.kind = ScanOutcome::Kind::Stopped;
    flush();
    tellProgress();
    outcome.elapsedMs = elapsed();
    outcome.scannedBytes = m_done;
    outcome.filesFound = m_filesFound;
    m_inbox.post(
        [&listener = m_listener, id = m_sessionId, outcome] { listener.onFinished(id, outcome); });
}

bool ScanTask::mayGoOn()
{
    if (m_control->isPaused() && !m_control->isStopped()) {
        flush();
        m_elapsedBefore = elapsed();
        m_inbox.post([&listener = m_listener, id = m_sessionId] { listener.onPaused(id); });
        m_control->waitWhilePaused();
        m_clock.start();
    }
    return !m_control->isStopped() && m_filesFound < kMaxFiles;
}

void ScanTask::advanced(qint64 done)
{
    m_done = m_doneBefore + done;
    if (elapsed() - m_toldAt >= kTellEveryMs) {
        flush();
        tellProgress();
    }
}

bool ScanTask::found(Finding &&finding)
{
    m_batch.append(describe(finding, ++m_filesFound));
    if (m_batch.size() >= kMaxBatch)
        flush();
    return m_filesFound < kMaxFiles;
}

void ScanTask::flush()
{
    if (m_batch.isEmpty())
        return;
    m_inbox.post([&listener = m_listener, id = m_sessionId, files = m_batch] {
        listener.onFilesFound(id, files);
    });
    m_batch.clear();
}

void ScanTask::tellProgress()
{
    m_toldAt = elapsed();
    const double percent = m_total > 0 ? 100.0 * double(m_done) / double(m_total) : 0.0;
    m_inbox.post([&listener = m_listener, id = m_sessionId, percent = qBound(0.0, percent, 100.0),
                  files = m_filesFound, at = m_toldAt,
                  phase = m_phaseText] { listener.onProgress(id, percent, files, at, phase); });
}

} // namespace recoveryd
} // namespace services
