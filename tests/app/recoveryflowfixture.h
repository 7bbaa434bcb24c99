#pragma once

#include "app/recoveryflow.h"
#include "support/dialogsteps.h"
#include "support/fakeservice.h"
#include "support/recoverywindow.h"
#include "ui/common/theme.h"

#include <QtTest>

using core::controllers::RecoveryTargetFacts;
using support::ModalDriver;
using support::presses;
using support::RecoveryWindow;
using testsupport::FakeService;
using Scan = ScanResultsPage::State;
using Recovery = RecoveryProgressPage::State;

Q_DECLARE_METATYPE(ScanResultsPage::State)
Q_DECLARE_METATYPE(RecoveryProgressPage::State)

/// What the tests of the recovery environment's flow share.
namespace recoveryflow {

const QString kEnumerate = QStringLiteral("disk.enumerate");
const QString kPrepare = QStringLiteral("disk.prepareForScan");
const QString kStart = QStringLiteral("scan.start");
const QString kFiles = QStringLiteral("session.getFiles");
const QString kRecover = QStringLiteral("recovery.start");
const QString kCannotStart = QStringLiteral("无法开始扫描");
const QString kLinkLost = QStringLiteral("与恢复服务的连接已断开");

inline QJsonObject disks(const QString &pathAndFs)
{
    const QJsonObject partition{{QStringLiteral("title"), QStringLiteral("数据")},
                                {QStringLiteral("pathAndFs"), pathAndFs}};
    const QJsonObject disk{{QStringLiteral("diskTitle"), QStringLiteral("Disk")},
                           {QStringLiteral("partitions"), QJsonArray{partition}}};
    return {{QStringLiteral("groups"), QJsonArray{disk}}};
}

inline QJsonArray files(int count)
{
    QJsonArray made;
    for (int i = 0; i < count; ++i)
        made.append(QJsonObject{{QStringLiteral("fileId"), QStringLiteral("id%1").arg(i)},
                                {QStringLiteral("name"), QStringLiteral("名%1.pdf").arg(i)},
                                {QStringLiteral("sizeBytes"), 1000},
                                {QStringLiteral("probScore"), 90 - i},
                                {QStringLiteral("path"), QStringLiteral("/a")}});
    return made;
}

inline QJsonObject error(int code, const char *message)
{
    return {{QStringLiteral("code"), code},
            {QStringLiteral("message"), QString::fromUtf8(message)}};
}

/// The window of the recovery environment on a service with one partition, one scan "s1" of three
/// files and one recovery "r1".
struct Bench
{
    std::unique_ptr<FakeService> m_service;
    std::unique_ptr<RecoveryWindow> m_window;
    RecoveryTargetFacts m_facts;

    static void prepareApplication()
    {
        QApplication::setQuitOnLastWindowClosed(false);
        ui::common::ThemeColors::init(ui::common::ThemeType::dark, 1.0);
    }
    void open()
    {
        m_facts = RecoveryTargetFacts();
        m_facts.outputDir = QStringLiteral("/out/文件恢复_1");
        m_service = std::make_unique<FakeService>();
        QVERIFY(m_service->start());
        m_service->reply(kEnumerate, disks(QStringLiteral("/dev/sda1  EXT4")));
        m_service->reply(kPrepare, {{QStringLiteral("action"), QStringLiteral("ready")}});
        m_service->reply(kStart, {{QStringLiteral("sessionId"), QStringLiteral("s1")}});
        m_service->reply(kFiles, {{QStringLiteral("files"), files(3)}});
        m_service->reply(kRecover, {{QStringLiteral("recoveryId"), QStringLiteral("r1")}});
        m_service->reply(QStringLiteral("recovery.getDetail"), {});
        m_window = std::make_unique<RecoveryWindow>(m_service->name());
        m_window->findChild<RecoveryFlow *>()->setTargetProbe(
            [this](const QString &) { return m_facts; });
        QTRY_COMPARE(m_window->partitions()->selectedDevicePath(), QStringLiteral("/dev/sda1"));
    }
    void close()
    {
        m_window.reset();
        QVERIFY(!RecoveryWindow::workflow()); // goes with the main window
        m_service.reset();
    }
    void scanEvent(const char *event, QJsonObject data, const char *session = "s1")
    {
        data.insert(QStringLiteral("sessionId"), QLatin1String(session));
        m_service->broadcast(QLatin1String(event), data);
    }
    void taskEvent(const char *event, QJsonObject data, const char *task = "r1")
    {
        data.insert(QStringLiteral("recoveryId"), QLatin1String(task));
        m_service->broadcast(QLatin1String(event), data);
    }
    void startScan()
    {
        m_window->pressStart();
        QTRY_COMPARE(RecoveryWindow::scan()->sessionId(), QStringLiteral("s1"));
        QCOMPARE(RecoveryWindow::scan()->state(), Scan::Running);
    }
    void startRecovery()
    {
        if (RecoveryWindow::scan()->state() != Scan::Running)
            startScan();
        scanEvent("scan.fileFound", {{QStringLiteral("files"), files(3)}});
        scanEvent("scan.completed", {});
        QTRY_COMPARE(RecoveryWindow::scan()->state(), Scan::Completed);
        RecoveryWindow::tick(0);
        RecoveryWindow::tick(2);
        RecoveryWindow::setOutput(QStringLiteral("/out"));
        RecoveryWindow::press("StartRecoveryButton");
    }
};

} // namespace recoveryflow
