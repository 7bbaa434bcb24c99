#include "recoveryd/scan/scantask.h"

#include "common/text.h"
#include "core/jsonnumber.h"

#include <algorithm>

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kTellEveryMs = 200;
constexpr qint64 kSaveEveryMs = 3000;
// A carver reports a file when it has seen its end, so what it passed shortly before may still be
// open when the scan is cut off.
constexpr qint64 kCarvedAgain = 64 * 1024 * 1024;
// A drive with a thousand files on each of its tracks must not make a quick scan a slow one.
constexpr ResultList::CheckBudget kQuickChecks = {8000, 3000};
// A deep scan reads as much anyway.
constexpr ResultList::CheckBudget kDeepChecks = {60000, 3600000};
constexpr double kAlmostDone = 99.0;

/// The place on the device that is `done` bytes into the ranges.
qint64 placeOf(const Ranges &ranges, qint64 done)
{
    for (const Range &range : ranges) {
        if (done < range.length)
            return range.start + done;
        done -= range.length;
    }
    return ranges.isEmpty() ? 0 : ranges.last().end();
}

Ranges behind(const Ranges &ranges, qint64 place)
{
    return subtracted(ranges, {{0, qMax(qint64(0), place)}});
}

} // namespace

ScanTask::ScanTask(const Order &order, std::shared_ptr<WorkControl> control, Mailbox &inbox,
                   ScanListener &listener)
    : m_order(order)
    , m_control(std::move(control))
    , m_inbox(inbox)
    , m_listener(listener)
    , m_elapsedBefore(order.elapsedMs)
{}

void ScanTask::run()
{
    m_clock.start();
    ScanOutcome outcome;
    if (m_log.openForAppending(m_order.logPath, &outcome.error)) {
        m_results =
            std::make_unique<ResultList>(m_log, m_order.request, m_order.device.volume.size());
        scan(&outcome);
        outcome.filesFound = m_results->count();
    } else {
        outcome.kind = ScanOutcome::Kind::Failed;
    }
    if (m_control->isStopped())
        outcome.kind = ScanOutcome::Kind::Stopped;
    if (!m_logError.isEmpty()) {
        outcome.kind = ScanOutcome::Kind::Failed;
        outcome.error = m_logError;
    }
    outcome.elapsedMs = elapsed();
    outcome.scannedBytes = m_done;
    m_inbox.post([&listener = m_listener, id = m_order.sessionId, outcome] {
        listener.onFinished(id, outcome);
    });
}

void ScanTask::scan(ScanOutcome *outcome)
{
    beginPhase(QStringLiteral("正在读取分区结构"));
    const QJsonObject before = m_log.checkpoint();
    m_results->reload();
    ScanPlan plan(m_order.device, m_order.request);
    m_readers.append({0, plan.media()});
    const qint64 carving = plan.carvingEstimate();
    if (before.contains(QLatin1String("metadataDone"))) {
        const QJsonArray volumes = before.value(QLatin1String("volumes")).toArray();
        for (const QJsonValue &volume : volumes)
            m_volumes.append(PlannedVolume::fromJson(volume.toObject()));
        m_metadataDone = before.value(QLatin1String("metadataDone")).toInt();
        m_carvedTo = core::toInt64(before.value(QLatin1String("carvedTo")));
        m_total = carving;
        plan.setVolumes(m_volumes);
    } else {
        if (plan.needsSearch())
            beginPhase(QStringLiteral("正在搜索文件系统"));
        m_total = plan.searchWork() + carving;
        m_reading = plan.media().get();
        const bool isSearched = plan.search(*this);
        m_reading = nullptr;
        endPhase(plan.searchWork());
        m_volumes = plan.volumes();
        if (isSearched)
            m_metadataDone = 0;
    }
    // Where no structure can be read, the contents are all that a quick scan has.
    const bool hasMetadata = scanMetadata(plan, outcome);
    if ((m_order.request.isDeep() || !hasMetadata) && mayGoOn())
        carve(plan, outcome);
    const Ranges bad = unreadable(plan);
    outcome->unreadableBytes = totalLength(bad);
    m_results->markUnreadable(bad);
    if (outcome->unreadableBytes > 0)
        outcome->notes.append(QStringLiteral("%1 数据无法读取，涉及的文件已标明")
                                  .arg(sizeText(outcome->unreadableBytes)));
    if (std::any_of(m_readers.begin(), m_readers.end(),
                    [](const auto &reader) { return reader.second->isGone(); })) {
        outcome->kind = ScanOutcome::Kind::Interrupted;
        outcome->error =
            QStringLiteral("设备已断开，已保留找到的 %1 个文件").arg(m_results->count());
    }
    if (outcome->kind == ScanOutcome::Kind::Completed && m_logError.isEmpty() &&
        !m_control->isStopped())
        m_percent = 100.0;
    checkpoint();
    flush();
    tellProgress();
}

bool ScanTask::scanMetadata(ScanPlan &plan, ScanOutcome *outcome)
{
    std::vector<ScanPhase> phases = plan.metadataPhases();
    if (phases.empty() && !m_order.request.isDeep() && mayGoOn())
        outcome->notes.append(QStringLiteral("没有可读取的文件系统结构，已按内容查找"));
    for (const ScanPhase &phase : phases)
        m_total += phase.scanner->totalWork();
    for (int i = 0; i < int(phases.size()) && mayGoOn(); ++i) {
        if (i < m_metadataDone)
            continue;
        const ScanPhase &phase = phases[size_t(i)];
        m_readers.append({phase.place.shift, phase.media});
        m_results->beginScanner(phase.place);
        runScanner(*phase.scanner, *phase.media, outcome);
        m_results->endScanner();
        beginPhase(QStringLiteral("正在核对文件内容"));
        m_results->checkContents(*plan.media(),
                                 m_order.request.isDeep() ? kDeepChecks : kQuickChecks,
                                 [this] { return mayGoOn(); });
        if (!mayGoOn() || phase.media->isGone())
            break;
        m_metadataDone = i + 1;
        checkpoint();
    }
    return !phases.empty();
}

void ScanTask::carve(ScanPlan &plan, ScanOutcome *outcome)
{
    const Ranges all = plan.carvingRanges(m_results->closeClaims());
    m_carving = behind(all, m_carvedTo - kCarvedAgain);
    if (!m_order.request.isDeep()) // which was not foreseen
        m_total += totalLength(m_carving);
    const std::unique_ptr<Scanner> carver = plan.makeCarver(m_carving);
    runScanner(*carver, *plan.media(), outcome);
    if (!mayGoOn() || plan.media()->isGone())
        return;
    m_carvedTo = m_order.device.volume.size();
    m_carving.clear();
    retrySkipped(plan, all, outcome);
}

void ScanTask::retrySkipped(ScanPlan &plan, const Ranges &carved, ScanOutcome *outcome)
{
    if (plan.media()->skippedBytes() == 0)
        return;
    beginPhase(QStringLiteral("正在重新读取跳过的区域"));
    const Ranges readable = plan.media()->retrySkipped([this] { return mayGoOn(); });
    const Ranges again = intersected(carved, readable);
    if (again.isEmpty() || !mayGoOn())
        return;
    const std::unique_ptr<Scanner> carver =
        plan.makeCarver(again, QStringLiteral("正在扫描重新读出的区域"));
    runScanner(*carver, *plan.media(), outcome);
}

void ScanTask::runScanner(Scanner &scanner, const MediaReader &media, ScanOutcome *outcome)
{
    beginPhase(scanner.phaseText());
    m_reading = &media;
    QString error;
    if (!scanner.scan(*this, &error)) {
        // What one method cannot do, the next one may.
        qWarning() << "[ScanTask]" << error;
        outcome->notes.append(error);
    }
    m_reading = nullptr;
    endPhase(scanner.totalWork());
}

Ranges ScanTask::unreadable(const ScanPlan &plan) const
{
    Ranges bad;
    const Ranges device = {{0, plan.media()->size()}};
    for (const auto &reader : m_readers) {
        Ranges shifted = reader.second->badRanges();
        for (Range &range : shifted)
            range.start += reader.first;
        bad += subtracted(intersected(device, shifted), bad);
        std::sort(bad.begin(), bad.end(),
                  [](const Range &a, const Range &b) { return a.start < b.start; });
    }
    return bad;
}

void ScanTask::beginPhase(const QString &text)
{
    m_phaseText = text;
    flush();
    tellProgress();
}

void ScanTask::endPhase(qint64 work)
{
    m_doneBefore += work;
    m_done = m_doneBefore;
}

void ScanTask::checkpoint()
{
    QJsonObject reached;
    if (m_metadataDone >= 0) {
        QJsonArray volumes;
        for (const PlannedVolume &volume : qAsConst(m_volumes))
            volumes.append(volume.toJson());
        reached.insert(QStringLiteral("volumes"), volumes);
        reached.insert(QStringLiteral("metadataDone"), m_metadataDone);
        reached.insert(QStringLiteral("carvedTo"), m_carvedTo);
    }
    reached.insert(QStringLiteral("elapsedMs"), elapsed());
    reached.insert(QStringLiteral("scannedBytes"), m_done);
    m_log.setCheckpoint(reached);
    if (!m_log.flush(true, &m_logError))
        m_isFull = true;
    m_savedAt = elapsed();
}

bool ScanTask::mayGoOn()
{
    if (m_control->isPaused() && !m_control->isStopped()) {
        flush();
        checkpoint();
        m_elapsedBefore = elapsed();
        m_inbox.post([&listener = m_listener, id = m_order.sessionId] { listener.onPaused(id); });
        m_control->waitWhilePaused();
        m_clock.start();
    }
    return !m_control->isStopped() && !m_isFull && m_logError.isEmpty() &&
           !(m_reading && m_reading->isGone());
}

void ScanTask::advanced(qint64 done)
{
    m_done = m_doneBefore + done;
    if (!m_carving.isEmpty())
        m_carvedTo = qMax(m_carvedTo, placeOf(m_carving, done));
    const qint64 now = elapsed();
    if (now - m_savedAt >= kSaveEveryMs)
        checkpoint();
    if (now - m_toldAt >= kTellEveryMs) {
        flush();
        tellProgress();
    }
}

bool ScanTask::found(Finding &&finding)
{
    if (!m_results->add(std::move(finding)))
        m_isFull = true;
    const bool isTime = elapsed() - m_toldAt >= kTellEveryMs;
    if (m_results->newCount() >= kMaxBatch || isTime)
        flush();
    if (isTime)
        tellProgress();
    return !m_isFull && m_logError.isEmpty();
}

void ScanTask::flush()
{
    const QVector<FoundFile> files = m_results ? m_results->takeNew() : QVector<FoundFile>();
    // Kept before it is told; from here on a killed service does not lose it.
    if (m_logError.isEmpty() && m_log.isOpen() && !m_log.flush(false, &m_logError))
        qWarning() << "[ScanTask]" << m_logError;
    for (int i = 0; i < files.size(); i += kMaxBatch) {
        QJsonArray batch;
        for (int k = i; k < qMin(files.size(), i + kMaxBatch); ++k)
            batch.append(files.at(k).toJson());
        m_inbox.post([&listener = m_listener, id = m_order.sessionId, batch] {
            listener.onFilesFound(id, batch);
        });
    }
}

void ScanTask::tellProgress()
{
    m_toldAt = elapsed();
    if (m_total > 0 && m_percent < 100.0)
        m_percent =
            qMax(m_percent, qBound(0.0, 100.0 * double(m_done) / double(m_total), kAlmostDone));
    QString phase = m_phaseText;
    qint64 lost = 0;
    for (const auto &reader : qAsConst(m_readers))
        lost = qMax(lost, reader.second->lostBytes());
    if (lost > 0)
        phase += QStringLiteral("（%1 无法读取）").arg(sizeText(lost));
    m_inbox.post([&listener = m_listener, id = m_order.sessionId, percent = m_percent,
                  files = m_results ? m_results->count() : 0, at = m_toldAt,
                  phase] { listener.onProgress(id, percent, files, at, phase); });
}

} // namespace recoveryd
} // namespace services
