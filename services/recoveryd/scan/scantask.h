#pragma once

#include "common/mailbox.h"
#include "recoveryd/devices/devicecatalog.h"
#include "recoveryd/scan/foundfile.h"
#include "recoveryd/scan/scanner.h"
#include "recoveryd/scan/scanrequest.h"
#include "recoveryd/workcontrol.h"

#include <QElapsedTimer>
#include <QObject>

#include <memory>

namespace services {
namespace recoveryd {

/// How a scan ended.
struct ScanOutcome
{
    enum class Kind { Completed, Stopped, Failed };

    Kind kind = Kind::Completed;
    QString error;
    qint64 elapsedMs = 0; ///< Without pauses.
    qint64 scannedBytes = 0;
    int filesFound = 0;
};

/// Who is told about a scan; on the thread of the mailbox that the task is given.
class ScanListener
{
public:
    virtual ~ScanListener() = default;

    virtual void onProgress(const QString &sessionId, double percent, int filesFound,
                            qint64 elapsedMs, const QString &phaseText) = 0;
    virtual void onFilesFound(const QString &sessionId, const QVector<FoundFile> &files) = 0;
    virtual void onPaused(const QString &sessionId) = 0;
    /// The last call.
    virtual void onFinished(const QString &sessionId, const ScanOutcome &outcome) = 0;
};

/// One scan, on a worker thread: run it by a queued call. It stops, pauses and goes on by its
/// control. Inbox and listener must outlive it. Files come in batches of at most 500, a few times a
/// second; a pause hands over what has been found before it is told.
class ScanTask : public QObject, private ScanObserver
{
    Q_OBJECT

public:
    static constexpr int kMaxBatch = 500;
    /// More than this a session does not hold: it ends early then, as completed.
    static constexpr int kMaxFiles = 150000;

    ScanTask(const QString &sessionId, const Device &device, const ScanRequest &request,
             std::shared_ptr<WorkControl> control, Mailbox &inbox, ScanListener &listener);

public slots:
    void run();

private:
    bool mayGoOn() override;
    void advanced(qint64 done) override;
    bool found(Finding &&finding) override;

    qint64 elapsed() const { return m_elapsedBefore + m_clock.elapsed(); }
    void flush();
    void tellProgress();

    QString m_sessionId;
    Device m_device;
    ScanRequest m_request;
    std::shared_ptr<WorkControl> m_control;
    Mailbox &m_inbox;
    ScanListener &m_listener;

    QVector<FoundFile> m_batch;
    int m_filesFound = 0;
    QString m_phaseText;
    qint64 m_total = 0;
    qint64 m_doneBefore = 0; ///< Work of the scanners before the current one.
    qint64 m_done = 0;
    QElapsedTimer m_clock;
    qint64 m_elapsedBefore = 0; ///< Up to the last pause.
    qint64 m_toldAt = 0;
};

} // namespace recoveryd
} // namespace services
