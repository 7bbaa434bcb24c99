#include "support/modaldriver.h"
#include "ui/common/resources.h"
#include "ui/common/segmentedtoggle.h"
#include "ui/common/theme.h"
#include "ui/pages/partitionselectpage.h"
#include "ui/pages/partitionselectpage/diskgroupwidget.h"
#include "ui/pages/partitionselectpage/partitioncardwidget.h"
#include "ui/pages/partitionselectpage/partitionrules.h"
#include "ui/pages/scansettingsdialog.h"

#include <QComboBox>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QSignalSpy>
#include <QTest>

using support::ModalDriver;
using ui::common::ThemeColors;
using ui::common::models::buildPartitionGroups;
using ui::common::models::DiskGroup;
using ui::common::models::PartitionEntry;

namespace {

PartitionEntry entry(const char *pathAndFs, bool selected = false)
{
    PartitionEntry made;
    made.title = QStringLiteral("分区");
    made.pathAndFs = QString::fromUtf8(pathAndFs);
    made.used = QStringLiteral("1 GB");
    made.total = QStringLiteral("2 GB");
    made.mountPoint = QStringLiteral("/m");
    made.usage = 50;
    made.selected = selected;
    return made;
}

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

} // namespace

class TestPartitionSelectPage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void beginsWithTheSamples();
    void showsWhatTheServiceSaid();
    void growsWithTheFontScale_data();
    void growsWithTheFontScale();
    void choosesAmongCards_data();
    void choosesAmongCards();
    void choosesByClick();
    void choosesByKeyboard();
    void dropsTheChoiceWithOtherDisks();
    void tellsSamplesFromRealDisks();
    void showsThatThereIsNothing();
    void asksForScanAndRefresh();
    void keepsSettingsUnlessCancelled();
    void takesKnownSettings_data();
    void takesKnownSettings();

private:
    QList<PartitionCardWidget *> cards() const
    {
        return m_page->findChildren<PartitionCardWidget *>();
    }
    /// The path of the one card that is drawn as chosen; a note if there is not exactly one.
    QString drawnAsChosen() const;
    QString label(const char *name) const
    {
        return m_page->findChild<QLabel *>(QString::fromLatin1(name))->text();
    }
    void click(const char *button)
    {
        QTest::mouseClick(m_page->findChild<QPushButton *>(QString::fromLatin1(button)),
                          Qt::LeftButton);
    }
    /// Opens the settings dialog and works it.
    bool inSettings(const ModalDriver::Step &step);

    QScopedPointer<PartitionSelectPage> m_page;
};

void TestPartitionSelectPage::initTestCase()
{
    ui::common::initResources();
}

void TestPartitionSelectPage::init()
{
    m_page.reset();
    ThemeColors::init(ui::common::ThemeType::dark, 1.0);
    qApp->setStyleSheet(ui::common::buildAppStyleSheet(ui::common::ThemeType::dark));
    m_page.reset(new PartitionSelectPage);
    m_page->resize(800, 660);
    m_page->show();
    QVERIFY(QTest::qWaitForWindowActive(m_page.data()));
}

QString TestPartitionSelectPage::drawnAsChosen() const
{
    QStringList chosen;
    for (const PartitionCardWidget *card : cards()) {
        if (card->property("selected").toBool())
            chosen.append(card->devicePath());
    }
    return chosen.size() == 1 ? chosen.first() : QStringLiteral("%1 cards").arg(chosen.size());
}

bool TestPartitionSelectPage::inSettings(const ModalDriver::Step &step)
{
    ModalDriver driver(step);
    click("ScanSettingsButton");
    return driver.handled();
}

void TestPartitionSelectPage::beginsWithTheSamples()
{
    const QVector<DiskGroup> groups = buildPartitionGroups();
    QStringList titles;
    QStringList paths;
    for (const DiskGroup &group : groups) {
        titles.append(group.diskTitle);
        for (const PartitionEntry &partition : group.partitions) {
            QString path;
            QString fs;
            partitionselect::splitPathAndFs(partition.pathAndFs, &path, &fs);
            paths.append(path);
            QVERIFY2(fs != QStringLiteral("未知"), qPrintable(partition.pathAndFs));
            QVERIFY(partition.usage >= 0 && partition.usage <= 100);
            QCOMPARE(partition.dashed, path == QStringLiteral("未分配"));
        }
    }
    QCOMPARE(titles, text("Samsung SSD 970 EVO Plus|WD Blue 2TB HDD|Seagate Backup Plus 1TB|"
                          "Kingston NV2 1TB SSD|TOSHIBA DT01ACA200 HDD|SanDisk Ultra 512GB SSD|"
                          "WDC Green 1TB HDD")
                         .split(QLatin1Char('|')));
    QCOMPARE(paths.size(), 15);
    QStringList shown;
    for (const PartitionCardWidget *card : cards())
        shown.append(card->devicePath());
    QCOMPARE(shown, paths);
    QCOMPARE(m_page->findChildren<DiskGroupWidget *>().size(), 7);
    QCOMPARE(m_page->selectedDevicePath(), QStringLiteral("/dev/nvme0n1p2"));
    QCOMPARE(m_page->selectedScanMode(), QStringLiteral("quick"));
    QCOMPARE(m_page->advancedScanSettings(), QJsonObject());
}

void TestPartitionSelectPage::showsWhatTheServiceSaid()
{
    PartitionEntry partition = entry("/dev/sda1  XFS");
    partition.dashed = true;
    m_page->setDiskGroups(
        {{text("Foo NVMe 2 TB"), {partition}}, {text("leer"), {}, text("64.0 MB")}});
    PartitionCardWidget *card = cards().value(0);
    QVERIFY(card);
    QCOMPARE(card->fsType(), QStringLiteral("XFS"));
    QCOMPARE(card->objectName(), QStringLiteral("PartitionCard"));
    QVERIFY(card->property("dashed").toBool());
    QStringList texts;
    for (const QLabel *part : card->findChildren<QLabel *>())
        texts.append(part->text());
    for (const char *expected :
         {"分区", "/dev/sda1", "XFS", "已用: 1 GB", "总计 2 GB", "挂载点: /m"})
        QVERIFY2(texts.contains(text(expected)), expected);
    // The size that the service names counts before what the title may tell.
    QStringList sizes;
    for (const QLabel *part : m_page->findChildren<QLabel *>(QStringLiteral("SubtleText")))
        sizes.append(part->text());
    QVERIFY2(sizes.contains(text("2 TB")) && sizes.contains(text("64.0 MB")),
             qPrintable(sizes.join(QLatin1Char('|'))));
    auto *bar = card->findChild<QProgressBar *>();
    QCOMPARE(bar->value(), 50);
    QCOMPARE(bar->height(), 10);
    QVERIFY(!bar->isTextVisible());
    // A disk without partitions says so in place of the cards.
    auto *box = m_page->findChild<QFrame *>(QStringLiteral("EmptyDiskBox"));
    QVERIFY(box);
    QTRY_VERIFY(box->isVisible());
    QCOMPARE(box->findChild<QLabel *>()->text(), text("没有可以扫描的分区"));
    QCOMPARE(cards().size(), 1);
}

void TestPartitionSelectPage::growsWithTheFontScale_data()
{
    QTest::addColumn<double>("scale");
    QTest::addColumn<QSize>("size");
    QTest::newRow("plain") << 1.0 << QSize(236, 168);
    QTest::newRow("large") << 1.4 << QSize(330, 235);
}

void TestPartitionSelectPage::growsWithTheFontScale()
{
    QFETCH(double, scale);
    m_page.reset();
    ThemeColors::init(ui::common::ThemeType::dark, scale);
    qApp->setStyleSheet(ui::common::buildAppStyleSheet(ui::common::ThemeType::dark));
    PartitionSelectPage page;
    page.resize(752, 600);
    page.show();
    QVERIFY(QTest::qWaitForWindowExposed(&page));
    auto *card = page.findChild<PartitionCardWidget *>();
    QTEST(card->size(), "size");
    // No line of text is cut off.
    for (const QLabel *part : card->findChildren<QLabel *>())
        QVERIFY2(part->height() >= part->fontMetrics().height(), qPrintable(part->text()));
    auto *area = page.findChild<QScrollArea *>();
    QVERIFY(area->widget()->width() <= area->viewport()->width());
    QCOMPARE(page.findChild<ui::common::SegmentedToggle *>()->width(), 220);
}

void TestPartitionSelectPage::choosesAmongCards_data()
{
    QTest::addColumn<QVector<bool>>("marked");
    QTest::addColumn<QString>("chosen");
    QTest::newRow("none marked") << QVector<bool>{false, false, false} << text("/dev/p0");
    QTest::newRow("one marked") << QVector<bool>{false, true, false} << text("/dev/p1");
    QTest::newRow("two marked") << QVector<bool>{false, true, true} << text("/dev/p1");
    QTest::newRow("all marked") << QVector<bool>{true, true, true} << text("/dev/p0");
}

void TestPartitionSelectPage::choosesAmongCards()
{
    QFETCH(QVector<bool>, marked);
    DiskGroup first{text("A"), {}};
    DiskGroup second{text("B"), {}};
    for (int i = 0; i < marked.size(); ++i)
        (i == 0 ? first : second)
            .partitions.append(
                entry(qPrintable(QStringLiteral("/dev/p%1 EXT4").arg(i)), marked.at(i)));
    m_page->setDiskGroups({first, second});
    QTEST(m_page->selectedDevicePath(), "chosen");
    QTEST(drawnAsChosen(), "chosen");
}

void TestPartitionSelectPage::choosesByClick()
{
    const QList<PartitionCardWidget *> all = cards();
    QTest::mouseClick(all.at(0), Qt::LeftButton);
    QCOMPARE(m_page->selectedDevicePath(), QStringLiteral("/dev/nvme0n1p1"));
    QCOMPARE(drawnAsChosen(), QStringLiteral("/dev/nvme0n1p1"));
    // On a label inside the card.
    QTest::mouseClick(all.at(2)->findChild<QLabel *>(), Qt::LeftButton);
    QCOMPARE(drawnAsChosen(), QStringLiteral("/dev/nvme0n1p3"));

    // Dragged off and released outside, and the other button.
    QTest::mousePress(all.at(1), Qt::LeftButton);
    QTest::mouseRelease(all.at(1), Qt::LeftButton, Qt::NoModifier, QPoint(-5, 20));
    QTest::mouseClick(all.at(1), Qt::RightButton);
    QCOMPARE(m_page->selectedDevicePath(), QStringLiteral("/dev/nvme0n1p3"));
    QCOMPARE(drawnAsChosen(), QStringLiteral("/dev/nvme0n1p3"));

    QTest::mouseClick(all.at(4), Qt::LeftButton);
    QCOMPARE(m_page->selectedDevicePath(), text("未分配"));
    QCOMPARE(all.at(4)->fsType(), QStringLiteral("RAW"));
}

void TestPartitionSelectPage::choosesByKeyboard()
{
    const QList<PartitionCardWidget *> all = cards();
    all.at(0)->setFocus();
    QCOMPARE(m_page->selectedDevicePath(), QStringLiteral("/dev/nvme0n1p2"));
    QTest::keyClick(all.at(0), Qt::Key_Space);
    QCOMPARE(drawnAsChosen(), QStringLiteral("/dev/nvme0n1p1"));
    QTest::keyClick(all.at(0), Qt::Key_Right);
    QVERIFY(all.at(1)->hasFocus());
    QCOMPARE(drawnAsChosen(), QStringLiteral("/dev/nvme0n1p2"));
    QTest::keyClick(all.at(1), Qt::Key_Down);
    QVERIFY(all.at(4)->hasFocus());
    // Down to the last disk: the list follows the focus.
    for (int i = 0; i < 5; ++i)
        QTest::keyClick(m_page->focusWidget(), Qt::Key_Down);
    QCOMPARE(drawnAsChosen(), all.last()->devicePath());
    QTRY_VERIFY(!all.last()->visibleRegion().isEmpty());
    QTest::keyClick(m_page->focusWidget(), Qt::Key_Backtab, Qt::ShiftModifier);
    QTest::keyClick(m_page->focusWidget(), Qt::Key_Return);
    QCOMPARE(drawnAsChosen(), all.at(13)->devicePath());
}

void TestPartitionSelectPage::dropsTheChoiceWithOtherDisks()
{
    const DiskGroup disk{
        text("A"), {entry("/dev/p0 EXT4"), entry("/dev/p1 EXT4", true), entry("/dev/p2 XFS")}};
    m_page->setDiskGroups({disk});
    QTest::mouseClick(cards().at(2), Qt::LeftButton);
    // The same disks once more, as after every reconnection: nothing moves under the user.
    m_page->setDiskGroups({disk});
    QCOMPARE(m_page->selectedDevicePath(), QStringLiteral("/dev/p2"));
    QCOMPARE(drawnAsChosen(), QStringLiteral("/dev/p2"));

    cards().at(2)->setFocus();
    DiskGroup other = disk;
    other.partitions[2].used = QStringLiteral("3 GB");
    m_page->setDiskGroups({other});
    QCOMPARE(cards().size(), 3);
    QCOMPARE(m_page->selectedDevicePath(), QStringLiteral("/dev/p1"));
    QCOMPARE(drawnAsChosen(), QStringLiteral("/dev/p1"));
    QVERIFY(cards().at(1)->hasFocus());
}

void TestPartitionSelectPage::tellsSamplesFromRealDisks()
{
    auto *notice = m_page->findChild<QLabel *>(QStringLiteral("SampleNotice"));
    QVERIFY(notice->isVisible());
    QCOMPARE(notice->text(), text("恢复服务未连接，以下为示例磁盘"));
    m_page->setDiskGroups({{text("A"), {entry("/dev/p0 EXT4")}}});
    QVERIFY(!notice->isVisible());
    m_page->showSampleGroups(text("获取分区数据失败"));
    QVERIFY(notice->isVisible());
    QCOMPARE(notice->text(), text("获取分区数据失败，以下为示例磁盘"));
    QCOMPARE(cards().size(), 15);
    // Shown again at every failed attempt, the samples stay as they are.
    QTest::mouseClick(cards().at(0), Qt::LeftButton);
    m_page->showSampleGroups();
    QCOMPARE(notice->text(), text("恢复服务未连接，以下为示例磁盘"));
    QCOMPARE(m_page->selectedDevicePath(), QStringLiteral("/dev/nvme0n1p1"));
}

void TestPartitionSelectPage::showsThatThereIsNothing()
{
    QSignalSpy refresh(m_page.data(), &PartitionSelectPage::requestRefresh);
    m_page->setDiskGroups({});
    QCOMPARE(m_page->selectedDevicePath(), text("无可用分区"));
    QVERIFY(cards().isEmpty());
    auto *again = m_page->findChild<QPushButton *>(QStringLiteral("EmptyStateButton"));
    QVERIFY(again->isVisible());
    // The owner may answer inside the signal.
    connect(m_page.data(), &PartitionSelectPage::requestRefresh, this, [this] {
        m_page->setDiskGroups({{text("A"), {}}});
    });
    QTest::mouseClick(again, Qt::LeftButton);
    QCOMPARE(refresh.size(), 1);
    QVERIFY(!again->isVisible());
    // A disk without partitions leaves nothing to choose either.
    QCOMPARE(m_page->selectedDevicePath(), text("无可用分区"));
}

void TestPartitionSelectPage::asksForScanAndRefresh()
{
    QSignalSpy open(m_page.data(), &PartitionSelectPage::requestOpenScanResults);
    QSignalSpy refresh(m_page.data(), &PartitionSelectPage::requestRefresh);
    click("PrimaryActionButton");
    QCOMPARE(open.size(), 1);
    click("RefreshDisksButton");
    QCOMPARE(refresh.size(), 1);
    for (QPushButton *button :
         m_page->findChild<ui::common::SegmentedToggle *>()->findChildren<QPushButton *>()) {
        QTest::mouseClick(button, Qt::LeftButton);
        QCOMPARE(m_page->selectedScanMode(), button->text() == text("深度扫描")
                                                 ? QStringLiteral("deep")
                                                 : QStringLiteral("quick"));
    }
    QCOMPARE(m_page->selectedScanMode(), QStringLiteral("deep"));
}

void TestPartitionSelectPage::keepsSettingsUnlessCancelled()
{
    const auto choose = [](QWidget *dialog, const char *combo, Qt::Key key) {
        QTest::keyClick(dialog->findChild<QComboBox *>(QString::fromLatin1(combo)), key);
    };
    const auto press = [](QWidget *dialog, const char *button) {
        QTest::mouseClick(dialog->findChild<QPushButton *>(QString::fromLatin1(button)),
                          Qt::LeftButton);
    };
    QVERIFY(inSettings([&](QWidget *dialog) {
        QCOMPARE(dialog->windowTitle(), text("扫描设置"));
        QVERIFY(qobject_cast<QDialog *>(dialog)->isModal());
        choose(dialog, "FileScopeCombo", Qt::Key_End);
        press(dialog, "ScanSettingsCancel");
    }));
    QCOMPARE(m_page->advancedScanSettings(), QJsonObject());

    QVERIFY(inSettings([&](QWidget *dialog) {
        choose(dialog, "FileScopeCombo", Qt::Key_End);
        choose(dialog, "DeepScanScopeCombo", Qt::Key_Down);
        press(dialog, "ScanSettingsApply");
    }));
    const QJsonObject accepted{
        {QStringLiteral("fileScope"), QStringLiteral("codeAndLogs")},
        {QStringLiteral("deepResultSource"), QStringLiteral("metadataAndDeep")},
        {QStringLiteral("deepScanScope"), QStringLiteral("fullDisk")}};
    QCOMPARE(m_page->advancedScanSettings(), accepted);

    // The next one begins with what was accepted; Esc cancels.
    QVERIFY(inSettings([&](QWidget *dialog) {
        QCOMPARE(dialog->findChild<QComboBox *>(QStringLiteral("FileScopeCombo"))->currentText(),
                 text("仅代码与日志"));
        choose(dialog, "FileScopeCombo", Qt::Key_Home);
        QTest::keyClick(dialog, Qt::Key_Escape);
    }));
    QCOMPARE(m_page->advancedScanSettings(), accepted);

    // The page may go with its window while the dialog is open.
    ModalDriver driver([this](QWidget *) { m_page.reset(); });
    click("ScanSettingsButton");
    QVERIFY(driver.handled());
}

void TestPartitionSelectPage::takesKnownSettings_data()
{
    QTest::addColumn<QStringList>("given");
    QTest::addColumn<QStringList>("taken");
    const QStringList defaults =
        text("all metadataAndDeep unallocatedOnly").split(QLatin1Char(' '));
    const auto words = [](const char *list) {
        return text(list).split(QLatin1Char(' '));
    };
    QTest::newRow("none") << QStringList{QString(), QString(), QString()} << defaults;
    QTest::newRow("unknown") << words("ALL deep x") << defaults;
    QTest::newRow("documents") << words("documentsOnly deepOnly fullDisk")
                               << words("documentsOnly deepOnly fullDisk");
    QTest::newRow("media") << words("mediaOnly metadataAndDeep unallocatedOnly")
                           << words("mediaOnly metadataAndDeep unallocatedOnly");
    QTest::newRow("one unknown") << words("codeAndLogs deepOnly nothing")
                                 << words("codeAndLogs deepOnly unallocatedOnly");
}

void TestPartitionSelectPage::takesKnownSettings()
{
    QFETCH(QStringList, given);
    QFETCH(QStringList, taken);
    const auto settings = [](const QStringList &values) {
        return QJsonObject{{QStringLiteral("fileScope"), values.at(0)},
                           {QStringLiteral("deepResultSource"), values.at(1)},
                           {QStringLiteral("deepScanScope"), values.at(2)}};
    };
    QCOMPARE(ScanSettingsDialog(settings(given)).toJson(), settings(taken));
    QCOMPARE(ScanSettingsDialog(QJsonObject()).toJson(),
             settings(text("all metadataAndDeep unallocatedOnly").split(QLatin1Char(' '))));
}

QTEST_MAIN(TestPartitionSelectPage)
#include "tst_partitionselectpage.moc"
