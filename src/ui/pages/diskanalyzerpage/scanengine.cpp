#include "ui/pages/diskanalyzerpage/scanengine.h"

#include "analyzer/diskanalyzerworker.h"

namespace diskanalyzer {

ScanEngine::ScanEngine(QObject *parent)
    : QObject(parent)
    , m_worker(new DiskAnalyzerWorker)
    , m_stopped(std::make_shared<std::atomic<bool>>(false))
{
    m_thread.start(m_worker, QStringLiteral("DiskAnalyzer"));
}

ScanEngine::~ScanEngine()
{
    stop();
    m_thread.stop();
}

void ScanEngine::start(const QString &path, const AnalyzerSettingsDialog::Settings &settings)
{
    m_stopped = std::make_shared<std::atomic<bool>>(false);
    const auto scan = [worker = m_worker, stopped = m_stopped, path, settings] {
        if (stopped->load()) {
            emit worker->scanFinished(false, QStringLiteral("用户取消"), 0, 0);
            return;
        }
        // The worker clears its own flag as it begins, so a stop of just that moment is told anew.
        const auto again = QObject::connect(
            worker, &DiskAnalyzerWorker::progressChanged, worker,
            [worker, stopped] {
                if (stopped->load())
                    worker->requestStop();
            },
            Qt::DirectConnection);
        worker->startScan(path, settings.largeFileThreshold, settings.maxLargeFiles,
                          settings.findDuplicates, settings.duplicateByHash, settings.dupMinSize);
        QObject::disconnect(again);
    };
    QMetaObject::invokeMethod(m_worker, scan, Qt::QueuedConnection);
}

void ScanEngine::stop()
{
    m_stopped->store(true);
    m_worker->requestStop();
}

} // namespace diskanalyzer
