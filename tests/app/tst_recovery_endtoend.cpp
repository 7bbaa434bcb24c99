#include "support/diskimages.h"
#include "support/recoverywindow.h"
#include "support/sampledocuments.h"
#include "ui/common/segmentedtoggle.h"
#include "ui/common/theme.h"
#include "ui/pages/scanresultspage/scanresultsmodel.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <QProcess>
#include <QtTest>

#include <csignal>

using scanresults::ScanResultsModel;
using support::RecoveryWindow;
using Scan = ScanResultsPage::State;
using Recovery = RecoveryProgressPage::State;

/// The main window and the recovery service as two processes, over an image from the real tools.
class TestRecoveryEndToEnd : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void deletedDocumentsComeBack();
    void serviceKilledMidScan();

private:
    bool makeImage(int emptyMiB, QString *error);
    bool startService();

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<QProcess> m_service;
    std::unique_ptr<RecoveryWindow> m_window;
    QMap<QByteArray, QString> m_deleted; ///< SHA-256 to name.
};

namespace {

QByteArray sha256(const QString &path)
{
    return QCryptographicHash::hash(diskimages::readAll(path), QCryptographicHash::Sha256);
}

} // namespace

void TestRecoveryEndToEnd::initTestCase()
{
    QApplication::setQuitOnLastWindowClosed(false);
    ui::common::ThemeColors::init(ui::common::ThemeType::dark, 1.0);
}

void TestRecoveryEndToEnd::cleanup()
{
    m_window.reset();
    if (m_service) {
        m_service->kill();
        QVERIFY(m_service->waitForFinished(10000));
        m_service.reset();
    }
    m_dir.reset();
}

bool TestRecoveryEndToEnd::makeImage(int emptyMiB, QString *error)
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_deleted.clear();
    const QString docs = m_dir->filePath(QStringLiteral("docs"));
    const QString image = m_dir->filePath(QStringLiteral("image"));
    QList<samples::Document> made;
    if (!QDir().mkpath(docs) || !samples::writeDocuments(docs, false, &made, error))
        return false;
    if (!diskimages::write(docs + QStringLiteral("/photo.png"), diskimages::png(40000)) ||
        !diskimages::makeExt(image, docs, 16 * 1024 + emptyMiB * 1024,
                             {QStringLiteral("-t"), QStringLiteral("ext4")}, error))
        return false;
    for (const char *name : {"安装手册.pdf", "样例-docx.docx", "样例-xlsx.xlsx", "photo.png"}) {
        const QString file = QString::fromUtf8(name);
        const QString path = docs + QLatin1Char('/') + file;
        if (!QFileInfo::exists(path)) {
            *error = QStringLiteral("no sample ") + file;
            return false;
        }
        m_deleted.insert(sha256(path), file);
        if (!diskimages::debugfs(image, QStringLiteral("rm /") + file, error))
            return false;
    }
    return true;
}

bool TestRecoveryEndToEnd::startService()
{
    m_service = std::make_unique<QProcess>();
    m_service->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_service->start(QStringLiteral(MORVANE_RECOVERYD),
                     {QStringLiteral("--image"), m_dir->filePath(QStringLiteral("image")),
                      QStringLiteral("--state"), m_dir->filePath(QStringLiteral("state")),
                      QStringLiteral("--socket"), m_dir->filePath(QStringLiteral("s"))});
    return m_service->waitForStarted(10000);
}

void TestRecoveryEndToEnd::deletedDocumentsComeBack()
{
    QString error;
    QVERIFY2(makeImage(0, &error), qPrintable(error));
    m_window = std::make_unique<RecoveryWindow>(m_dir->filePath(QStringLiteral("s")));
    QTRY_VERIFY(m_window->showsSamples()); // nobody is there yet
    QVERIFY(startService());
    QTRY_VERIFY_WITH_TIMEOUT(!m_window->showsSamples(), 10000);

    m_window->pressStart();
    QTRY_COMPARE_WITH_TIMEOUT(RecoveryWindow::scan()->state(), Scan::Completed, 60000);
    QVERIFY(RecoveryWindow::rowCount() >= m_deleted.size());
    for (int row = 0; row < RecoveryWindow::rowCount(); ++row)
        RecoveryWindow::tick(row);
    const QString out = m_dir->filePath(QStringLiteral("out"));
    RecoveryWindow::setOutput(out);
    RecoveryWindow::press("StartRecoveryButton");
    QTRY_COMPARE_WITH_TIMEOUT(RecoveryWindow::recovery()->state(), Recovery::Completed, 60000);

    QMap<QByteArray, QString> missing = m_deleted;
    QDirIterator files(out, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext())
        missing.remove(sha256(files.next()));
    QVERIFY2(missing.isEmpty(), qPrintable(missing.values().join(QLatin1Char(' '))));
}

void TestRecoveryEndToEnd::serviceKilledMidScan()
{
    QString error;
    QVERIFY2(makeImage(2048, &error), qPrintable(error));
    QVERIFY(startService());
    m_window = std::make_unique<RecoveryWindow>(m_dir->filePath(QStringLiteral("s")));
    QTRY_VERIFY_WITH_TIMEOUT(!m_window->showsSamples() &&
                                 m_window->partitions()->selectedDevicePath() ==
                                     QLatin1String("/dev/image0"),
                             10000);
    m_window->partitions()->findChild<ui::common::SegmentedToggle *>()->setCurrentIndex(1); // deep
    m_window->pressStart();
    QTRY_VERIFY(!RecoveryWindow::scan()->sessionId().isEmpty());
    const QString first = RecoveryWindow::scan()->sessionId();
    QCOMPARE(RecoveryWindow::scan()->state(), Scan::Running);
    QCOMPARE(::kill(static_cast<pid_t>(m_service->processId()), SIGKILL), 0);
    QVERIFY(m_service->waitForFinished(10000));
    QTRY_COMPARE(RecoveryWindow::scan()->state(), Scan::ConnectionLost);
    QCOMPARE(RecoveryWindow::text("ScanTitle"), QStringLiteral("与恢复服务的连接已断开"));
    QTRY_VERIFY(m_window->showsSamples());

    // The same files are found again once the service is back.
    QVERIFY(startService());
    QTRY_VERIFY_WITH_TIMEOUT(!m_window->showsSamples(), 10000);
    QTRY_COMPARE(RecoveryWindow::scan()->state(), Scan::Interrupted);
    RecoveryWindow::press("StopButton");
    QTRY_COMPARE_WITH_TIMEOUT(RecoveryWindow::scan()->state(), Scan::Completed, 90000);
    QVERIFY(RecoveryWindow::scan()->sessionId() != first);
    QVERIFY(RecoveryWindow::rowCount() >= m_deleted.size());
}

QTEST_MAIN(TestRecoveryEndToEnd)
#include "tst_recovery_endtoend.moc"
