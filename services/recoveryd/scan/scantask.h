#pragma once

#include "common/mailbox.h"
#include "recoveryd/devices/devicecatalog.h"
#include "recoveryd/scan/resultlist.h"
#include "recoveryd/scan/scanner.h"
#include "recoveryd/scan/scanplan.h"
#include "recoveryd/scan/scanrequest.h"
#include "recoveryd/workcontrol.h"

#include <QElapsedTimer>
#include <QObject>
#include <QStringList>

#include <memory>

namespace services {
namespace recoveryd {

/// How a scan ended.
struct ScanOutcome
{
    enum class Kind {
        Completed,
        Stopped,
        Failed,
        Interrupted, ///< The medium has gone; the scan can go on when it is back.
    };

    Kind kind = Kind::Completed;
    QString error;
    qint64 elapsedMs = 0; ///< Without pauses.
    qint64 scannedBytes = 0;
    qint64 unreadableBytes = 0;
    int filesFound = 0;
    QStringList notes; ///< What the user should know about an otherwise good scan.
};

/// Who is told about a scan; on the thread of the mailbox that the task is given.
class ScanListener
{
public:
    virtual ~ScanListener() = default;

    virtual void onProgress(const QString &sessionId, double percent, int filesFound,
                            qint64 elapsedMs, const QString &phaseText) = 0;
    /// `files` are ready to be sent.
    virtual void onFilesFound(const QString &sessionId, const QJsonArray &files) = 0;
    virtual void onPaused(const QString &sessionId) = 0;
    /// The last call.
    virtual void onFinished(const QString &sessionId, const ScanOutcome &outcome) = 0;
};

/// One scan, on a worker thread: run it by a queued call. It stops, pauses and goes on by its
/// control. Inbox and listener must outlive it. What is found goes to the log before it is told, in
/// batches of at most 500, a few times a second; a pause hands over what has been found before it
/// is told. A log that holds something already is that of an interrupted scan, which then goes on.
class ScanTask : public QObject, private ScanObserver
{
    Q_OBJECT

public:
    static constexpr int kMaxBatch = 500;

    struct Order
    {
        QString sessionId;
        Device device;
        ScanRequest request;
        QString logPath;
        qint64 elapsedMs = 0; ///< Of the scan that goes on.
    };

    ScanTask(const Order &order, std::shared_ptr<WorkControl> control, Mailbox &inbox,
             ScanListener &listener);

public slots:
    void run();

private:
    bool mayGoOn() override;
    void advanced(qint64 done) override;
    bool found(Finding &&finding) override;

    void scan(ScanOutcome *outcome);
    /// False if there was nothing to scan.
    bool scanMetadata(ScanPlan &plan, ScanOutcome *outcome);
    void carve(ScanPlan &plan, ScanOutcome *outcome);
    /// Reads what was skipped again, and carves what that gives.
    void retrySkipped(ScanPlan &plan, const Ranges &carved, ScanOutcome *outcome);
    void runScanner(Scanner &scanner, const MediaReader &media, ScanOutcome *outcome);
    /// Bytes of the device that could not be read, by any reader so far.
    Ranges unreadable(const ScanPlan &plan) const;
    void beginPhase(const QString &text);
    void endPhase(qint64 work);
    void checkpoint();

    qint64 elapsed() const { return m_elapsedBefore + m_clock.elapsed(); }
    void flush();
    void tellProgress();

    Order m_order;
    std::shared_ptr<WorkControl> m_control;
    Mailbox &m_inbox;
    ScanListener &m_listener;

    ResultLog m_log;
    std::unique_ptr<ResultList> m_results;
    QString m_logError; ///< The log takes no more.
    bool m_isFull = false;
    const MediaReader *m_reading = nullptr;                               ///< Of the current phase.
    QVector<QPair<qint64, std::shared_ptr<const MediaReader>>> m_readers; ///< With their shifts.

    QVector<PlannedVolume> m_volumes;
    int m_metadataDone = -1; ///< Volumes whose metadata are scanned; -1: not even searched for.
    Ranges m_carving;        ///< What the carver is working through.
    qint64 m_carvedTo = 0;   ///< Place on the device up to which carving is done.

    QString m_phaseText;
    qint64 m_total = 0;
    qint64 m_doneBefore = 0; ///< Work of the phases before the current one.
    qint64 m_done = 0;
    double m_percent = 0;
    QElapsedTimer m_clock;
    qint64 m_elapsedBefore = 0; ///< Up to the last pause.
    qint64 m_toldAt = 0;
    qint64 m_savedAt = 0;
};

} // namespace recoveryd
} // namespace services
