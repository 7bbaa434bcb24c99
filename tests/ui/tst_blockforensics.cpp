#include "core/controllers/forensicscontroller.h"
#include "recoverypagesfixture.h"
#include "support/modaldriver.h"
#include "ui/pages/blockforensicspage.h"
#include "ui/pages/blockforensicspage/blockmaprules.h"
#include "ui/pages/blockforensicspage/blockmapwidget.h"
#include "ui/pages/blockforensicspage/forensicsrules.h"

#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QScrollArea>

#include <limits>

using namespace blockforensics;
using namespace testsupport;
using core::controllers::ForensicsController;
using services::Reply;

class TestBlockForensics : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void mapPaintsAndAnswers();
    void mapHovers();
    void largeMap();
    void registers();
    void listAndDetail();
    void verifies();
    void verificationOfTheOtherSnapshot();
    void recovers_data();
    void recovers();
    void deletes();
    void withoutConnection();
};

namespace {

const QString kList = QStringLiteral("debug.listSnapshots");
const QString kGet = QStringLiteral("debug.getSnapshot");
const QString kRegister = QStringLiteral("debug.registerFile");
const QString kVerify = QStringLiteral("debug.verify");
const QString kGetVerification = QStringLiteral("debug.getVerification");
const QString kRecover = QStringLiteral("debug.recoverFile");
const QString kDelete = QStringLiteral("debug.deleteSnapshot");

QJsonObject object(const char *json)
{
    return QJsonDocument::fromJson(json).object();
}

QJsonArray blocks(int count)
{
    static const char *const kWords[] = {"unchanged", "zeroed", "changed", "who knows"};
    QJsonArray array;
    for (int index = 0; index < count; ++index)
        array.append(
            QJsonObject{{QStringLiteral("blockIndex"), index},
                        {QStringLiteral("physicalBlock"), 5000 + index},
                        {QStringLiteral("status"), QLatin1String(kWords[index % 4])},
                        {QStringLiteral("originalSha256"), QString(64, QLatin1Char('a'))}});
    return array;
}

QJsonObject snapshot(const QString &id)
{
    QJsonObject result = object(R"({"filePath":"/home/a.txt","totalBlocks":5,"inodeNumber":77,
        "fileSize":20000,"devicePath":"/dev/sda1","fileSha256":"abc","snapshotTime":"2026-01-02",
        "extents":[{"physicalOffset":8589934592,"logicalOffset":0,"length":20480}],
        "verifications":[{"verificationId":"v1","verifyTime":"2026-01-03","integrityPercent":80.0,
        "unchangedBlocks":4,"changedBlocks":1,"inodeChanged":true,"note":"first"}]})");
    result.insert(QStringLiteral("snapshotId"), id);
    return result;
}

QJsonObject verification(const char *id)
{
    return {{QStringLiteral("verificationId"), QLatin1String(id)},
            {QStringLiteral("integrityPercent"), 100},
            {QStringLiteral("blockDetails"), blocks(4)}};
}

void expectNotice(QWidget *dialog, const char *title, const char *message)
{
    QCOMPARE(textOf(dialog, "NoticeTitle"), QString::fromUtf8(title));
    QCOMPARE(textOf(dialog, "NoticeMessage"), QString::fromUtf8(message));
    clickOn(dialog, "NoticeOkBtn");
}

/// A page with its service and controller, after its first list of two snapshots.
struct Bench
{
    FakeService service;
    core::ipc::IpcClient client{service.name()};
    ForensicsController controller{&client};
    BlockForensicsPage page{&controller};
    QListView *list = child<QListView>(&page, "SnapshotList");
    QTableView *verifications = child<QTableView>(&page, "VerificationTable");
    BlockMapWidget *map = page.findChild<BlockMapWidget *>();

    void start()
    {
        QVERIFY(service.start());
        service.reply(kList, object(R"({"snapshots":[
            {"snapshotId":"one","filePath":"/home/a.txt","totalBlocks":5,"inodeNumber":77},
            {"snapshotId":"two","filePath":"/home/b.txt","totalBlocks":6,"inodeNumber":78}]})"));
        service.reply(kGet, snapshot(QStringLiteral("one")));
        QVERIFY(client.ensureConnected(5000));
        page.resize(1000, 900);
        page.show();
        QVERIFY(QTest::qWaitForWindowExposed(&page));
        page.refresh();
        QTRY_COMPARE(list->model()->rowCount(), 2);
    }
    void choose(int row)
    {
        service.reply(kGet, snapshot(row == 0 ? QStringLiteral("one") : QStringLiteral("two")));
        QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier,
                          list->visualRect(list->model()->index(row, 0)).center());
        QTRY_VERIFY(child<QWidget>(&page, "VerifyButton")->isVisible());
    }
};

} // namespace

void TestBlockForensics::initTestCase()
{
    useDarkTheme();
}

void TestBlockForensics::mapPaintsAndAnswers()
{
    BlockMapWidget map;
    map.resize(40, 200);
    map.setBlocks(blocks(4)); // Two rows of two.
    map.show();               // A hidden widget hears of its new size only when it is shown.
    QVERIFY(QTest::qWaitForWindowExposed(&map));
    QCOMPARE(map.height(), 32);
    QVector<int> clicked;
    map.setClickCallback([&clicked](int index) { clicked.append(index); });
    const auto pixel = [&map](int x, int y) {
        return map.grab().toImage().pixelColor(x, y).name();
    };
    QCOMPARE(pixel(7, 7), QStringLiteral("#6ce8ba"));
    QCOMPARE(pixel(23, 7), QStringLiteral("#ffcb7d"));
    QCOMPARE(pixel(7, 23), QStringLiteral("#ff8a95"));
    QCOMPARE(pixel(23, 23), QStringLiteral("#ff8a95")); // An unknown word has changed, too.

    QTest::mouseClick(&map, Qt::LeftButton, Qt::NoModifier, QPoint(14, 7));
    QTest::mouseClick(&map, Qt::LeftButton, Qt::NoModifier, QPoint(36, 7));
    QVERIFY(clicked.isEmpty());
    QCOMPARE(map.selectedIndex(), -1);
    QTest::mouseClick(&map, Qt::LeftButton, Qt::NoModifier, QPoint(20, 20));
    QCOMPARE(clicked, QVector<int>{3});
    QCOMPARE(map.selectedIndex(), 3);
    QCOMPARE(pixel(23, 16), QStringLiteral("#ffffff"));
    QVERIFY(pixel(7, 0) != QStringLiteral("#ffffff"));

    map.resize(20, map.height());
    QCOMPARE(map.height(), 64); // One column now.
    map.setBlocks({});
    QCOMPARE(map.selectedIndex(), -1);
    QTest::mouseClick(&map, Qt::LeftButton, Qt::NoModifier, QPoint(5, 5));
    QCOMPARE(clicked.size(), 1);
}

void TestBlockForensics::mapHovers()
{
    BlockMapWidget map;
    map.resize(160, 16);
    map.setBlocks(blocks(4));
    map.show();
    QVERIFY(QTest::qWaitForWindowExposed(&map));
    const QColor before = map.grab().toImage().pixelColor(23, 0);
    QTest::mouseMove(&map, QPoint(20, 5));
    QTRY_COMPARE(map.hoveredIndex(), 1);
    QVERIFY(map.toolTip().contains(QStringLiteral("5001")));
    QVERIFY(map.toolTip().contains(QStringLiteral("已清零")));
    QVERIFY(map.grab().toImage().pixelColor(23, 0) != before);
    QTest::mouseMove(&map, QPoint(30, 5));
    QTRY_COMPARE(map.hoveredIndex(), -1);
    QVERIFY(map.toolTip().isEmpty());
    QTest::mouseMove(&map, QPoint(20, 5));
    QTRY_COMPARE(map.hoveredIndex(), 1);
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(&map, &leave);
    QCOMPARE(map.hoveredIndex(), -1);
}

void TestBlockForensics::largeMap()
{
    constexpr int kBlocks = 100000;
    QScrollArea area;
    auto *map = new BlockMapWidget;
    area.setWidget(map);
    area.setWidgetResizable(true);
    area.resize(500, 400);
    map->setBlocks(blocks(kBlocks));
    area.show();
    QVERIFY(QTest::qWaitForWindowExposed(&area));
    QCOMPARE(map->height(), heightFor(kBlocks, columnsFor(map->width())));
    // The shortest of a few times, since other programs run beside the test.
    const auto timeOf = [map](int height) {
        QImage image(map->width(), height, QImage::Format_ARGB32_Premultiplied);
        const QRect window(0, map->height() / 2, map->width(), height);
        qint64 best = std::numeric_limits<qint64>::max();
        for (int round = 0; round < 5; ++round) {
            QElapsedTimer clock;
            clock.start();
            map->render(&image, QPoint(), QRegion(window));
            best = qMin(best, clock.nsecsElapsed());
        }
        return best;
    };
    // A twentieth of the rows; painting all of them each time would cost the same for both.
    const qint64 part = timeOf(400);
    const qint64 whole = timeOf(8000);
    QVERIFY2(part * 4 < whole, qPrintable(QStringLiteral("%1 %2").arg(part).arg(whole)));
}

void TestBlockForensics::registers()
{
    Bench bench;
    bench.start();
    support::ModalDriver empty(
        [](QWidget *dialog) { expectNotice(dialog, "提示", "请输入文件路径"); });
    auto *path = child<QLineEdit>(&bench.page, "ForensicsPathEdit");
    path->setText(QStringLiteral("   "));
    clickOn(&bench.page, "RegisterSnapshotButton");
    QVERIFY(empty.handled());
    QCOMPARE(bench.service.count(kRegister), 0);

    auto *button = child<QPushButton>(&bench.page, "RegisterSnapshotButton");
    bench.service.hold(kRegister);
    path->setText(QStringLiteral(" /home/c.txt "));
    QTest::keyClick(path, Qt::Key_Return);
    QCOMPARE(button->text(), QStringLiteral("注册中..."));
    QVERIFY(!button->isEnabled());
    QVERIFY(bench.service.waitForRequest(kRegister));
    QCOMPARE(bench.service.lastParams(kRegister), object(R"({"filePath":"/home/c.txt"})"));
    support::ModalDriver fine(
        [](QWidget *dialog) { expectNotice(dialog, "注册成功", "Inode: 77, 块数: 5"); });
    QVERIFY(bench.service.release(kRegister, Reply::ok(snapshot(QStringLiteral("three")))));
    QTRY_VERIFY(fine.handled());
    QVERIFY(button->isEnabled());
    QCOMPARE(button->text(), QStringLiteral("注册快照"));
    QVERIFY(bench.service.waitForRequest(kList, 2));

    support::ModalDriver failed(
        [](QWidget *dialog) { expectNotice(dialog, "注册失败", "文件不存在"); });
    clickOn(&bench.page, "RegisterSnapshotButton");
    QVERIFY(bench.service.waitForRequest(kRegister, 2));
    QVERIFY(bench.service.release(kRegister, Reply::failure(1, QStringLiteral("文件不存在"))));
    QTRY_VERIFY(failed.handled());
    QVERIFY(button->isEnabled());
}

void TestBlockForensics::listAndDetail()
{
    Bench bench;
    bench.start();
    QCOMPARE(bench.list->model()->index(1, 0).data().toString(),
             QStringLiteral("/home/b.txt\ninode:78  6块"));
    QVERIFY(!child<QPushButton>(&bench.page, "DeleteSnapshotButton")->isEnabled());
    bench.choose(0);
    QCOMPARE(bench.service.lastParams(kGet), object(R"({"snapshotId":"one"})"));
    QCOMPARE(textOf(&bench.page, "SnapshotDevice"), QStringLiteral("/dev/sda1"));
    QCOMPARE(textOf(&bench.page, "SnapshotInode"), QStringLiteral("77"));
    QCOMPARE(textOf(&bench.page, "SnapshotSize"), QStringLiteral("19.5 KB"));
    QCOMPARE(textOf(&bench.page, "SnapshotBlocks"), QStringLiteral("5"));
    QCOMPARE(textOf(&bench.page, "SnapshotHash"), QStringLiteral("abc"));
    QCOMPARE(textOf(&bench.page, "SnapshotTime"), QStringLiteral("2026-01-02"));
    const auto *extents = child<QTableView>(&bench.page, "ExtentTable");
    QCOMPARE(cellText(extents, 0, 0), QStringLiteral("0x200000000"));
    QCOMPARE(cellText(extents, 0, 2), QStringLiteral("20.0 KB"));
    QCOMPARE(cellText(bench.verifications, 0, 3), QStringLiteral("已变化"));

    // An answer about a snapshot that is not selected any more.
    emit bench.controller.snapshotLoaded(
        {{QStringLiteral("snapshotId"), QStringLiteral("two")},
         {QStringLiteral("devicePath"), QStringLiteral("/dev/late")}});
    QCOMPARE(textOf(&bench.page, "SnapshotDevice"), QStringLiteral("/dev/sda1"));

    // A new list keeps the selection, and lets go of it once the snapshot is gone.
    bench.page.refresh();
    QVERIFY(bench.service.waitForRequest(kList, 2));
    QTRY_COMPARE(bench.list->currentIndex().row(), 0);
    QCOMPARE(bench.service.count(kGet), 1);
    bench.service.reply(kList, {});
    bench.page.refresh();
    QTRY_COMPARE(bench.list->model()->rowCount(), 0);
    QVERIFY(!child<QWidget>(&bench.page, "VerifyButton")->isVisible());
}

void TestBlockForensics::verifies()
{
    Bench bench;
    bench.start();
    bench.choose(0);
    auto *button = child<QPushButton>(&bench.page, "VerifyButton");
    bench.service.hold(kVerify);
    QTest::keyClicks(child<QLineEdit>(&bench.page, "VerificationNote"), QStringLiteral("second"));
    clickOn(&bench.page, "VerifyButton");
    QCOMPARE(button->text(), QStringLiteral("验证中..."));
    QVERIFY(!button->isEnabled());
    QVERIFY(bench.service.waitForRequest(kVerify));
    QCOMPARE(bench.service.lastParams(kVerify), object(R"({"snapshotId":"one","note":"second"})"));
    QVERIFY(bench.service.release(kVerify, Reply::ok(verification("v2"))));
    QTRY_COMPARE(bench.verifications->model()->rowCount(), 2);
    QCOMPARE(button->text(), QStringLiteral("执行验证"));
    QCOMPARE(bench.map->blocks().size(), 4);

    QTRY_VERIFY(bench.map->isVisible());
    QCOMPARE(textOf(&bench.page, "BlockInfoHint"), QStringLiteral("点击方块查看详情"));
    QTest::mouseClick(bench.map, Qt::LeftButton, Qt::NoModifier, QPoint(20, 5));
    QCOMPARE(textOf(&bench.page, "BlockInfoIndex"), QStringLiteral("1"));
    QCOMPARE(textOf(&bench.page, "BlockInfoPhysical"), QStringLiteral("5001"));
    QCOMPARE(textOf(&bench.page, "BlockInfoStatus"), QStringLiteral("○ 已清零"));
    QCOMPARE(textOf(&bench.page, "BlockInfoOriginal"), QStringLiteral("aaaaaaaaaaaaaaaa..."));
    QCOMPARE(textOf(&bench.page, "BlockInfoCurrent"), QStringLiteral("--"));

    // An older verification, by its row; an answer for another one changes nothing.
    bench.service.hold(kGetVerification);
    QTest::mouseClick(
        bench.verifications->viewport(), Qt::LeftButton, Qt::NoModifier,
        bench.verifications->visualRect(bench.verifications->model()->index(0, 0)).center());
    QVERIFY(bench.service.waitForRequest(kGetVerification));
    QCOMPARE(bench.service.lastParams(kGetVerification), object(R"({"verificationId":"v1"})"));
    emit bench.controller.verificationLoaded(verification("v7"));
    QVERIFY(!bench.map->isVisible());
    QJsonObject answer = verification("v1");
    answer.insert(QStringLiteral("blockDetails"), blocks(9));
    QVERIFY(bench.service.release(kGetVerification, Reply::ok(answer)));
    QTRY_COMPARE(bench.map->blocks().size(), 9);

    support::ModalDriver failed(
        [](QWidget *dialog) { expectNotice(dialog, "验证失败", "设备不可读"); });
    clickOn(&bench.page, "VerifyButton");
    QVERIFY(bench.service.waitForRequest(kVerify, 2));
    QVERIFY(bench.service.release(kVerify, Reply::failure(1, QStringLiteral("设备不可读"))));
    QTRY_VERIFY(failed.handled());
    QVERIFY(button->isEnabled());
    QCOMPARE(bench.verifications->model()->rowCount(), 2);
}

void TestBlockForensics::verificationOfTheOtherSnapshot()
{
    Bench bench;
    bench.start();
    bench.choose(0);
    bench.service.hold(kVerify);
    clickOn(&bench.page, "VerifyButton");
    QVERIFY(bench.service.waitForRequest(kVerify));
    bench.choose(1);
    QVERIFY(bench.service.release(kVerify, Reply::ok(verification("v2"))));
    QTRY_VERIFY(child<QPushButton>(&bench.page, "VerifyButton")->isEnabled());
    QCOMPARE(bench.verifications->model()->rowCount(), 1);
    QVERIFY(bench.map->blocks().isEmpty());
}

void TestBlockForensics::recovers_data()
{
    QTest::addColumn<QString>("directory");
    QTest::addColumn<bool>("success");
    QTest::newRow("cancelled") << QString() << true;
    QTest::newRow("saved") << QStringLiteral("/mnt/out") << true;
    QTest::newRow("failed") << QStringLiteral("/mnt/out") << false;
}

void TestBlockForensics::recovers()
{
    QFETCH(QString, directory);
    QFETCH(bool, success);
    Bench bench;
    bench.start();
    bench.choose(0);
    QString asked;
    bench.page.setDirectoryChooser([&](QWidget *, const QString &title) {
        asked = title;
        return directory;
    });
    bench.service.hold(kRecover);
    auto *button = child<QPushButton>(&bench.page, "RecoverSnapshotButton");
    clickOn(&bench.page, "RecoverSnapshotButton");
    QCOMPARE(asked, QStringLiteral("选择保存目录"));
    if (directory.isEmpty()) {
        QVERIFY(button->isEnabled());
        QCOMPARE(bench.service.count(kRecover), 0);
        return;
    }
    QCOMPARE(button->text(), QStringLiteral("恢复中..."));
    QVERIFY(bench.service.waitForRequest(kRecover));
    QCOMPARE(bench.service.lastParams(kRecover),
             object(R"({"snapshotId":"one","outputDir":"/mnt/out"})"));
    support::ModalDriver driver([success](QWidget *dialog) {
        expectNotice(dialog, success ? "恢复完成" : "恢复失败",
                     success ? "文件已保存至：/mnt/out/a.txt\n写入: 10 B" : "目标已满");
    });
    const Reply good =
        Reply::ok(object(R"({"outputPath":"/mnt/out/a.txt","bytesWritten":10,"failedBlocks":0})"));
    QVERIFY(bench.service.release(kRecover,
                                  success ? good : Reply::failure(1, QStringLiteral("目标已满"))));
    QTRY_VERIFY(driver.handled());
    QCOMPARE(button->text(), QStringLiteral("恢复文件"));
    QVERIFY(button->isEnabled());
}

void TestBlockForensics::deletes()
{
    Bench bench;
    bench.start();
    bench.choose(1);
    bench.service.reply(kDelete, {});
    support::ModalDriver refuse([](QWidget *dialog) {
        QVERIFY(textOf(dialog, "NoticeMessage").contains(QStringLiteral("/home/b.txt")));
        QTest::keyClick(dialog, Qt::Key_Return);
    });
    clickOn(&bench.page, "DeleteSnapshotButton");
    QVERIFY(refuse.handled());
    QCOMPARE(bench.service.count(kDelete), 0);
    support::ModalDriver agree([](QWidget *dialog) { clickOn(dialog, "NoticeOkBtn"); });
    clickOn(&bench.page, "DeleteSnapshotButton");
    QVERIFY(agree.handled());
    QVERIFY(bench.service.waitForRequest(kDelete));
    QCOMPARE(bench.service.lastParams(kDelete), object(R"({"snapshotId":"two"})"));
    QVERIFY(bench.service.waitForRequest(kList, 2));
    QTRY_VERIFY(!child<QWidget>(&bench.page, "VerifyButton")->isVisible());
    QVERIFY(!bench.list->currentIndex().isValid());
    QVERIFY(!child<QPushButton>(&bench.page, "DeleteSnapshotButton")->isEnabled());
}

void TestBlockForensics::withoutConnection()
{
    FakeService service; // Not started.
    core::ipc::IpcClient client(service.name());
    ForensicsController controller(&client);
    BlockForensicsPage page(&controller);
    page.show();
    QVERIFY(QTest::qWaitForWindowExposed(&page));
    const QWidget *list = child<QWidget>(&page, "SnapshotList")->parentWidget();
    QCOMPARE(textOf(list, "EmptyStateTitle"), QStringLiteral("等待恢复服务"));
    page.refresh();
    QCOMPARE(textOf(list, "EmptyStateTitle"), QStringLiteral("无法读取快照列表"));
    QVERIFY(service.start());
    service.reply(kList, {});
    QVERIFY(client.ensureConnected(5000));
    clickOn(list, "EmptyStateButton");
    QTRY_COMPARE(textOf(list, "EmptyStateTitle"), QStringLiteral("还没有快照"));

    BlockForensicsPage lonely(nullptr);
    lonely.refresh();
    child<QLineEdit>(&lonely, "ForensicsPathEdit")->setText(QStringLiteral("/x"));
    child<QPushButton>(&lonely, "RegisterSnapshotButton")->click();
}

QTEST_MAIN(TestBlockForensics)
#include "tst_blockforensics.moc"
