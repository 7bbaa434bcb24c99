#include "app/mainwindow.h"
#include "app/wechatrepair.h"
#include "support/dialogsteps.h"
#include "support/interruptedclean.h"

#include <QDir>
#include <QFileInfo>
#include <QtTest>

using core::AppMode;
using support::ModalDriver;

Q_DECLARE_METATYPE(core::AppMode)

namespace {

QString journalFolder(const TempTree &home)
{
    return home.path(".config/morvane/wechat_clean/journal");
}

int journals(const TempTree &home)
{
    return QDir(journalFolder(home)).entryList(QDir::Files).size();
}

} // namespace

class TestWechatRepair : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QApplication::setQuitOnLastWindowClosed(false); }
    void startRepairsWithoutThePage_data();
    void startRepairsWithoutThePage();
    void diskThatIsAwayIsNoNews();
    void windowGoesMeanwhile();
};

void TestWechatRepair::startRepairsWithoutThePage_data()
{
    QTest::addColumn<AppMode>("mode");
    QTest::newRow("normal") << AppMode::normal;
    QTest::newRow("recovery environment") << AppMode::livecd; // It has no such page.
}

void TestWechatRepair::startRepairsWithoutThePage()
{
    QFETCH(AppMode, mode);
    TempTree home;
    qputenv("HOME", QFile::encodeName(home.path()));
    home.file("w/keep", "equal");
    const QString copy = home.file("w/copy", "equal");
    const QString backup =
        support::interruptClean(home, QStringLiteral("w/keep"), QStringLiteral("w/copy"));
    QStringList told;
    ModalDriver driver(support::presses("NoticeOkBtn", &told));
    MainWindowOptions options;
    options.trayProbe = [] {
        return false;
    };
    options.updateServer = QUrl(QStringLiteral("http://127.0.0.1:9"));
    std::unique_ptr<MainWindow> window(new MainWindow(mode, nullptr, options));
    window->show();
    if (mode == AppMode::livecd) {
        window.reset();
        QVERIFY(QFileInfo::exists(backup));
        QCOMPARE(journals(home), 1);
        return;
    }
    QTRY_VERIFY(driver.handled());
    QCOMPARE(told.value(0), QStringLiteral("已检查上次中断的微信清理"));
    QVERIFY2(told.value(1).contains(copy), qPrintable(told.value(1)));
    QVERIFY(QFileInfo::exists(copy) && !QFileInfo::exists(backup));
    QCOMPARE(journals(home), 0);
    // From the first start on there is room for the journal of a clean.
    QTRY_VERIFY(QFileInfo(home.path(".config/morvane/wechat_clean/reserve")).size() > 0);
}

void TestWechatRepair::diskThatIsAwayIsNoNews()
{
    TempTree home;
    home.file("w/keep", "equal");
    home.file("w/copy", "equal");
    support::interruptClean(home, QStringLiteral("w/keep"), QStringLiteral("w/copy"));
    home.move("w", "elsewhere");
    QWidget window;
    startWechatRepair(&window, home.path());
    QTRY_VERIFY(window.children().isEmpty());
    QVERIFY(!QApplication::activeModalWidget());
    QCOMPARE(journals(home), 1);
    home.move("elsewhere", "w");
    QStringList told;
    ModalDriver driver(support::presses("NoticeOkBtn", &told));
    startWechatRepair(&window, home.path());
    QTRY_VERIFY(driver.handled());
    QCOMPARE(journals(home), 0);
    QVERIFY(QFileInfo::exists(home.path("w/copy")));
}

void TestWechatRepair::windowGoesMeanwhile()
{
    TempTree home;
    home.file("w/keep", "equal");
    home.file("w/copy", "equal");
    const QString backup =
        support::interruptClean(home, QStringLiteral("w/keep"), QStringLiteral("w/copy"));
    {
        QWidget window;
        startWechatRepair(&window, home.path());
    }
    // Repaired or left to the next start, but never half.
    const bool repaired = QFileInfo::exists(home.path("w/copy"));
    QCOMPARE(QFileInfo::exists(backup), !repaired);
    QCOMPARE(journals(home), repaired ? 0 : 1);
}

QTEST_MAIN(TestWechatRepair)
#include "tst_wechatrepair.moc"
