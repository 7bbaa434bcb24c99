#pragma once

#include "core/workerthread.h"
#include "ui/pages/analyzersettingsdialog.h"

#include <QObject>

#include <atomic>
#include <memory>

class DiskAnalyzerWorker;

namespace diskanalyzer {

/// Owns the worker and its thread. A stop holds from the moment it is asked for, also for a scan
/// that has been asked for but not begun.
class ScanEngine : public QObject
{
    Q_OBJECT

public:
    explicit ScanEngine(QObject *parent = nullptr);
    /// Stops a running scan and waits for its end.
    ~ScanEngine() override;

    /// Connect to its signals; they come from its thread.
    DiskAnalyzerWorker *worker() const { return m_worker; }

    /// One scan at a time: not before scanFinished() of the one before.
    void start(const QString &path, const AnalyzerSettingsDialog::Settings &settings);
    void stop();

private:
    DiskAnalyzerWorker *m_worker; ///< Goes with the thread.
    core::WorkerThread m_thread;
    std::shared_ptr<std::atomic<bool>> m_stopped; ///< Of the scan asked for last.
};

} // namespace diskanalyzer
