#include "recoverypagesfixture.h"
#include "support/dialogsteps.h"
#include "support/faketools.h"
#include "support/temptree.h"
#include "ui/common/appnoticedialog.h"
#include "ui/pages/wechatcleanpage.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QRadioButton>
#include <QScrollBar>
#include <QSpinBox>
#include <QStackedWidget>

#include <sys/stat.h>
#include <unistd.h>

using namespace support;
using testsupport::child;
using testsupport::clickOn;
using testsupport::textOf;
using UiState = WechatCleanPage::UiState;

namespace {

const QString kAccount = QStringLiteral(".local/share/WeChat/wxid_a");
const QString kFiles = kAccount + QStringLiteral("/msg/file");
const QString kOperations = QStringLiteral(".config/morvane/wechat_clean/operations");

QString operator""_u(const char *utf8, size_t length)
{
    return QString::fromUtf8(utf8, static_cast<int>(length));
}

struct Identity
{
    quint64 inode = 0;
    quint64 links = 0;
};

Identity identityOf(const QString &path)
{
    struct stat info = {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return {};
    return {info.st_ino, info.st_nlink};
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArrayLiteral("unreadable");
}

/// A page over a home of its own, and a list of processes without the client in it: the real one
/// names this test.
struct Bench
{
    TempTree home;
    FakeTools tools;
    QByteArray oldPath;
    QStringList told; ///< Titles and messages of the notices.
    std::unique_ptr<WechatCleanPage> page;
    QTimer guard; ///< Closes a notice that nobody awaits: the test is to fail, not to hang.
    QPointer<QWidget> seen;

    Bench()
    {
        QObject::connect(&guard, &QTimer::timeout, &guard, [this] {
            QWidget *dialog = QApplication::activeModalWidget();
            if (dialog && dialog == seen && qobject_cast<ui::common::AppNoticeDialog *>(dialog))
                dialog->close();
            seen = dialog;
        });
        guard.start(2000);
        QString error;
        if (!tools.add(QStringLiteral("ps"), FakeTools::prints("bash bash\n"), &error))
            qFatal("%s", qPrintable(error));
        oldPath = tools.prependToPath();
    }
    ~Bench() { qputenv("PATH", oldPath); }

    /// Three files of one content, one of them with two names, and a pair of another.
    void fill()
    {
        home.file(kFiles + "/2026-01/a.bin"_u, bytes('a'));
        home.file(kFiles + "/2026-02/b.bin"_u, bytes('a'));
        home.file(kFiles + "/2026-02/c.bin"_u, bytes('a'));
        QVERIFY(::link(QFile::encodeName(file("2026-02/c.bin"_u)).constData(),
                       QFile::encodeName(file("2026-02/c2.bin"_u)).constData()) == 0);
        home.file(kFiles + "/p.bin"_u, bytes('p'));
        home.file(kFiles + "/q.bin"_u, bytes('p'));
        home.file(kFiles + "/small.bin"_u, "x");
        home.file(kFiles + "/small2.bin"_u, "x");
    }
    static QByteArray bytes(char what) { return QByteArray(1024 * 1024 + (what == 'p'), what); }
    QString file(const QString &name) const { return home.path(kFiles + "/"_u + name); }

    void show(UiState awaited = UiState::Directories)
    {
        page.reset(new WechatCleanPage(nullptr, home.path()));
        page->resize(780, 640);
        page->show();
        QVERIFY(QTest::qWaitForWindowExposed(page.get()));
        QTRY_COMPARE(page->state(), awaited);
    }
    /// Runs `action`, which leads to so many notices, now or later, and answers them. Unlike
    /// ModalDriver it passes over the record dialog, which is modal itself. All in one call: a
    /// notice may come up inside the wait for the one before.
    template <typename Action>
    void answering(const char *button, Action action, int notices = 1)
    {
        int answered = 0;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &poll, [&] {
            QWidget *dialog = QApplication::activeModalWidget();
            if (answered == notices || !qobject_cast<ui::common::AppNoticeDialog *>(dialog))
                return;
            ++answered;
            presses(button, &told)(dialog);
        });
        poll.start(10);
        action();
        QTRY_COMPARE(answered, notices);
    }
    void scan()
    {
        answering("NoticeOkBtn", [this] { clickOn(page.get(), "WechatStartScanButton"); });
        QCOMPARE(page->state(), UiState::Results);
    }
    QList<QWidget *> cards() const
    {
        QList<QWidget *> list = page->findChildren<QWidget *>(QStringLiteral("WechatGroupCard"));
        list.erase(std::remove_if(list.begin(), list.end(),
                                  [](QWidget *card) { return card->isHidden(); }),
                   list.end());
        std::sort(list.begin(), list.end(), [](QWidget *a, QWidget *b) { return a->y() < b->y(); });
        return list;
    }
    QWidget *history()
    {
        clickOn(page.get(), "WechatHistoryButton");
        return child<QWidget>(page.get(), "WechatHistoryDialog");
    }
    /// A clean of everything, the question and the report answered.
    void cleanAll()
    {
        answering(
            "NoticeOkBtn", [this] { clickOn(page.get(), "WechatCleanAllButton"); }, 2);
        QTRY_COMPARE(page->state(), UiState::Results);
    }
};

QVariantList manyGroups(int groups, int files)
{
    QVariantList list{QVariantMap{{"totalGroups"_u, groups},
                                  {"shownGroups"_u, groups},
                                  {"totalReclaimable"_u, Q_INT64_C(1) << 30}}};
    for (int g = 0; g < groups; ++g) {
        QVariantList entries;
        for (int f = 0; f < files; ++f)
            entries << QVariantMap{
                {"path"_u,
                 "/w/group %1/a rather long name of a folder/file %2.bin"_u.arg(g).arg(f)},
                {"modified"_u, QDateTime::currentDateTime()},
                {"aliasPaths"_u, QStringList()}};
        list << QVariantMap{{"size"_u, 5000000}, {"hash"_u, "0f"_u}, {"files"_u, entries}};
    }
    return list;
}

/// Measures how long the event loop was away.
class GapMeter : public QObject
{
public:
    GapMeter()
    {
        connect(&m_timer, &QTimer::timeout, this, [this] { note(); });
        m_clock.start();
        m_timer.start(0);
    }
    qint64 longestMs()
    {
        note();
        return m_longest;
    }

private:
    void note() { m_longest = qMax(m_longest, m_clock.restart()); }

    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_longest = 0;
};

} // namespace

class TestWechatCleanPage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void emptyHome();
    void scanCleanAndUndo();
    void oneGroupAndTheFileChosen();
    void runningClientForbids();
    void warningsAreShownAndNoMeansNo();
    void interruptedCleanIsToldOf();
    void manualDirectory();
    void nothingSelected();
    void nothingFound();
    void stopEndsAScanAtOnce();
    void pageGoesInTheMiddle_data();
    void pageGoesInTheMiddle();
    void manyGroupsComeUpAtOnce();
    void tabsThroughAllCards();
    void longGroupGrows();
    void records();
    void settings();
};

void TestWechatCleanPage::initTestCase()
{
    using namespace ui::common;
    ThemeColors::init(ThemeType::light, 1.0);
    qApp->setPalette(buildPalette(ThemeType::light));
    qApp->setStyleSheet(buildAppStyleSheet(ThemeType::light));
}

void TestWechatCleanPage::emptyHome()
{
    Bench bench;
    bench.show(UiState::NoDirectory);
    auto *card = child<QWidget>(bench.page.get(), "WechatEmptyCard");
    QVERIFY(card->isVisible());
    QCOMPARE(textOf(card, "EmptyStateTitle"), "还没有检测到可用的微信目录"_u);
    QVERIFY(!child<QWidget>(bench.page.get(), "WechatStartScanButton")->isVisible());
    QCOMPARE(textOf(bench.page.get(), "WechatStatus"), "尚未开始扫描"_u);

    // A client that was set up in the meantime is found by looking again.
    bench.fill();
    clickOn(bench.page.get(), "WechatRedetectButton");
    QTRY_COMPARE(bench.page->state(), UiState::Directories);
    QCOMPARE(bench.page->selectedScanDirs(), QStringList{bench.home.path(kFiles)});
}

void TestWechatCleanPage::scanCleanAndUndo()
{
    Bench bench;
    bench.fill();
    bench.show();
    QCOMPARE(textOf(bench.page.get(), "WechatProfileType"), "原生微信"_u);
    bench.scan();
    QCOMPARE(bench.told, QStringList({"扫描完成"_u, "扫描完成，共发现 2 组重复文件"_u}));
    QCOMPARE(textOf(bench.page.get(), "WechatSummaryLine"),
             "共发现 2 组重复文件，预计可释放 3.0 MB"_u);
    QCOMPARE(bench.cards().size(), 2);
    bench.told.clear();

    bench.cleanAll();
    QCOMPARE(bench.told.value(0), "确认清理"_u);
    QVERIFY2(bench.told.value(1).contains("将按当前选择执行文件合并，确定继续吗？"_u) &&
                 bench.told.value(1).contains("3 个副本（4 个路径）"_u),
             qPrintable(bench.told.value(1)));
    QCOMPARE(bench.told.value(2), "清理完成"_u);
    QVERIFY2(bench.told.value(3).startsWith("成功处理 4 个副本，释放 3.0 MB。"_u),
             qPrintable(bench.told.value(3)));
    const QStringList same{"2026-01/a.bin"_u, "2026-02/b.bin"_u, "2026-02/c.bin"_u,
                           "2026-02/c2.bin"_u};
    for (const QString &name : same) {
        QCOMPARE(identityOf(bench.file(name)).links, quint64(4));
        QCOMPARE(contentOf(bench.file(name)), Bench::bytes('a'));
    }
    QCOMPARE(identityOf(bench.file("p.bin"_u)).inode, identityOf(bench.file("q.bin"_u)).inode);
    QCOMPARE(contentOf(bench.file("p.bin"_u)), Bench::bytes('p'));
    QCOMPARE(identityOf(bench.file("small.bin"_u)).links, quint64(1));
    QVERIFY(child<QWidget>(bench.page.get(), "WechatNoResultCard")->isVisible());
    QCOMPARE(textOf(bench.page.get(), "WechatSummaryLine"),
             "共发现 0 组重复文件，预计可释放 0 B"_u);
    bench.told.clear();

    QWidget *history = bench.history();
    QTRY_VERIFY(child<QWidget>(history, "WechatRecordUndoButton"));
    QCOMPARE(textOf(history, "WechatRecordOverview"), "处理 2 组，释放 3.0 MB"_u);
    bench.answering(
        "NoticeOkBtn", [history] { clickOn(history, "WechatRecordUndoButton"); }, 2);
    QCOMPARE(bench.told.value(0), "确认撤销"_u);
    QVERIFY(bench.told.value(1).contains("4 个文件"_u));
    QCOMPARE(bench.told.value(2), "撤销完成"_u);
    QCOMPARE(bench.told.value(3), "成功恢复 4 个独立副本。"_u);
    for (const QString &name : same) {
        QCOMPARE(identityOf(bench.file(name)).links, quint64(1));
        QCOMPARE(contentOf(bench.file(name)), Bench::bytes('a'));
    }
    QVERIFY(identityOf(bench.file("p.bin"_u)).inode != identityOf(bench.file("q.bin"_u)).inode);
    QCOMPARE(bench.page->state(), UiState::Results);
    // The record says so, and offers no second undo.
    QTRY_COMPARE(textOf(child<QWidget>(history, "WechatRecordStatus"), "StatusPillText"),
                 "已撤销"_u);
    QTRY_VERIFY(!child<QWidget>(history, "WechatRecordUndoButton"));
}

void TestWechatCleanPage::oneGroupAndTheFileChosen()
{
    Bench bench;
    bench.fill();
    bench.show();
    bench.scan();
    QWidget *card = nullptr;
    for (QWidget *candidate : bench.cards()) {
        if (candidate->property("groupSize").toLongLong() == Bench::bytes('p').size())
            card = candidate;
    }
    QVERIFY(card);
    const auto radios = card->findChildren<QRadioButton *>("WechatFileRadio"_u);
    const auto roles = card->findChildren<QLabel *>("WechatFileRole"_u);
    QCOMPARE(radios.size(), 2);
    QVERIFY(radios.at(0)->isChecked());
    // A click beside the button, on the row, chooses as well.
    QTest::mouseClick(child<QWidget>(radios.at(1)->parent(), "WechatFileCaption"), Qt::LeftButton);
    QVERIFY(radios.at(1)->isChecked());
    QCOMPARE(roles.at(0)->text() + roles.at(1)->text(), "合并保留"_u);
    const QString kept = radios.at(1)->property("filePath").toString();
    const QVariantMap action = bench.page->buildCleanActionForCard(card);
    QCOMPARE(action.value("keepPath"_u).toString(), kept);
    QCOMPARE(bench.page->buildAllCleanActions().size(), 2);
    const quint64 inode = identityOf(kept).inode;

    bench.answering(
        "NoticeOkBtn", [card] { clickOn(card, "WechatGroupClean"); }, 2);
    QTRY_COMPARE(textOf(bench.page.get(), "WechatSummaryLine"),
                 "共发现 1 组重复文件，预计可释放 2.0 MB"_u);
    QCOMPARE(identityOf(bench.file("p.bin"_u)).inode, inode);
    QCOMPARE(identityOf(bench.file("q.bin"_u)).inode, inode);
    QCOMPARE(identityOf(bench.file("2026-02/b.bin"_u)).links, quint64(1));
    QCOMPARE(bench.cards().size(), 1);
}

void TestWechatCleanPage::runningClientForbids()
{
    Bench bench;
    bench.fill();
    bench.show();
    bench.scan();
    bench.told.clear();
    QString error;
    QVERIFY(bench.tools.add("ps"_u, FakeTools::prints("wechat /opt/wechat/wechat\n"), &error));
    bench.answering("NoticeOkBtn", [&bench] { clickOn(bench.page.get(), "WechatCleanAllButton"); });
    QCOMPARE(bench.told.value(0), "无法执行清理"_u);
    QVERIFY(bench.told.value(1).startsWith("检测到微信仍在运行，请先退出微信后再清理。\n"_u));
    QCOMPARE(bench.page->state(), UiState::Results);
    QCOMPARE(identityOf(bench.file("p.bin"_u)).links, quint64(1));
}

void TestWechatCleanPage::warningsAreShownAndNoMeansNo()
{
    Bench bench;
    bench.fill();
    bench.show();
    bench.scan();
    bench.told.clear();
    for (const char *button : {"NoticeCancelBtn", "Escape"}) {
        ModalDriver driver([&](QWidget *dialog) {
            if (qstrcmp(button, "Escape") != 0)
                return presses(button, &bench.told)(dialog);
            bench.told << textOf(dialog, "NoticeTitle") << textOf(dialog, "NoticeMessage");
            QTest::keyClick(dialog, Qt::Key_Escape);
        });
        bench.page->onPreflightFinished(true, {"已跳过现有软链接：/x"_u}, {});
        QVERIFY(driver.handled());
        QVERIFY(bench.told.value(1).contains("确定继续吗？\n\n注意：\n已跳过现有软链接：/x"_u));
        QCOMPARE(bench.page->state(), UiState::Results);
        bench.told.clear();
    }
}

void TestWechatCleanPage::interruptedCleanIsToldOf()
{
    // As a clean leaves it that was killed between the rename and the link.
    Bench bench;
    bench.fill();
    const QString id = "20260102-030405-678"_u;
    const QString path = bench.file("q.bin"_u);
    const QString backup = path + ".morvane_tmp_"_u + id;
    const quint64 inode = identityOf(path).inode;
    bench.home.move(kFiles + "/q.bin"_u, kFiles + "/q.bin.morvane_tmp_"_u + id);
    const QJsonObject entry{{"path"_u, path}, {"inode"_u, QString::number(inode)}};
    const QJsonObject action{{"keepPath"_u, bench.file("p.bin"_u)},
                             {"size"_u, QString::number(Bench::bytes('p').size())},
                             {"hash"_u, ""_u},
                             {"groups"_u, QJsonArray{QJsonArray{entry}}}};
    const QJsonObject journal{
        {"version"_u, 1}, {"kind"_u, "clean"_u}, {"id"_u, id}, {"actions"_u, QJsonArray{action}}};
    bench.home.file(".config/morvane/wechat_clean/journal/"_u + id + ".journal"_u,
                    QJsonDocument(journal).toJson(QJsonDocument::Compact) + '\n');

    bench.answering("NoticeOkBtn", [&bench] { bench.show(); });
    QCOMPARE(bench.told.value(0), "已检查上次中断的清理"_u);
    QVERIFY2(bench.told.value(1).contains("已恢复 1 个文件到原来的位置：\n"_u + path),
             qPrintable(bench.told.value(1)));
    QCOMPARE(identityOf(path).inode, inode);
    QCOMPARE(contentOf(path), Bench::bytes('p'));
    QVERIFY(!QFile::exists(backup));
    QTRY_COMPARE(bench.page->state(), UiState::Directories);
}

void TestWechatCleanPage::manualDirectory()
{
    Bench bench;
    bench.home.file("photos/a.bin"_u, Bench::bytes('a'));
    bench.home.file("photos/b.bin"_u, Bench::bytes('a'));
    bench.show(UiState::NoDirectory);
    const QString folder = bench.home.path("photos"_u);
    {
        ModalDriver driver(choosesFolder(folder, &bench.told));
        clickOn(child<QWidget>(bench.page.get(), "WechatEmptyCard"), "EmptyStateButton");
        QVERIFY(driver.handled());
    }
    QCOMPARE(bench.told, QStringList{"选择微信目录"_u});
    QTRY_COMPARE(bench.page->state(), UiState::Directories);
    QCOMPARE(textOf(bench.page.get(), "WechatProfileType").size(), 6);
    QCOMPARE(bench.page->selectedScanDirs(), QStringList{folder});

    bench.page->addDirectory(folder + "/"_u);
    QTRY_COMPARE(textOf(bench.page.get(), "WechatStatus"), "所选目录已在列表中。"_u);
    QCOMPARE(bench.page->selectedProfileMaps().size(), 1);
    // Looking again keeps what was added by hand.
    clickOn(bench.page.get(), "WechatRedetectButton");
    QTRY_COMPARE(bench.page->state(), UiState::Directories);
    QCOMPARE(bench.page->selectedProfileMaps().size(), 1);

    bench.scan();
    QCOMPARE(bench.cards().size(), 1);
    QCOMPARE(textOf(bench.page.get(), "WechatFilePath"), "a.bin"_u);
    clickOn(bench.page.get(), "WechatAdjustDirsButton");
    QCOMPARE(bench.page->state(), UiState::Directories);
    clickOn(bench.page.get(), "WechatBackToResultsButton");
    QCOMPARE(bench.page->state(), UiState::Results);
    clickOn(bench.page.get(), "WechatAdjustDirsButton");
    clickOn(bench.page.get(), "WechatProfileRemove");
    QCOMPARE(bench.page->state(), UiState::NoDirectory);
}

void TestWechatCleanPage::nothingSelected()
{
    Bench bench;
    bench.fill();
    bench.show();
    auto *check = child<QCheckBox>(bench.page.get(), "WechatProfileCheck");
    QVERIFY(check->isChecked());
    QTest::keyClick(check, Qt::Key_Space);
    bench.answering("NoticeOkBtn",
                    [&bench] { clickOn(bench.page.get(), "WechatStartScanButton"); });
    QCOMPARE(bench.told, QStringList({"提示"_u, "请先选择至少一个微信目录。"_u}));
    // The choice outlives another look.
    clickOn(bench.page.get(), "WechatRedetectButton");
    QTRY_COMPARE(bench.page->state(), UiState::Directories);
    QVERIFY(bench.page->selectedScanDirs().isEmpty());
}

void TestWechatCleanPage::nothingFound()
{
    Bench bench;
    bench.home.file(kFiles + "/a.bin"_u, "x");
    bench.show();
    bench.scan();
    auto *card = child<QWidget>(bench.page.get(), "WechatNoResultCard");
    QVERIFY(card->isVisible());
    QCOMPARE(textOf(card, "EmptyStateTitle"), "未扫描到可清理的重复文件"_u);
    bench.told.clear();
    bench.answering("NoticeOkBtn", [&bench] { clickOn(bench.page.get(), "WechatCleanAllButton"); });
    QCOMPARE(bench.told, QStringList({"提示"_u, "当前没有可清理的重复文件组。"_u}));
}

void TestWechatCleanPage::stopEndsAScanAtOnce()
{
    Bench bench;
    for (int i = 0; i < 40; ++i)
        bench.home.file(kFiles + "/%1.bin"_u.arg(i), Bench::bytes('a'));
    bench.show();
    bench.scan();
    bench.told.clear();
    ModalDriver driver(presses("NoticeOkBtn", &bench.told));
    clickOn(bench.page.get(), "WechatRescanButton");
    QCOMPARE(bench.page->state(), UiState::Busy);
    QCOMPARE(textOf(bench.page.get(), "WechatBusyTitle"), "正在扫描微信文件"_u);
    clickOn(bench.page.get(), "WechatStopButton");
    QCOMPARE(textOf(bench.page.get(), "WechatBusyText"), "正在停止..."_u);
    QTRY_VERIFY(driver.handled());
    QCOMPARE(bench.told, QStringList({"扫描已停止"_u, "用户取消"_u}));
    QCOMPARE(bench.page->state(), UiState::Directories);
    // What the scan before found is still there.
    clickOn(bench.page.get(), "WechatBackToResultsButton");
    QCOMPARE(bench.cards().size(), 1);
}

void TestWechatCleanPage::pageGoesInTheMiddle_data()
{
    QTest::addColumn<bool>("cleaning");
    QTest::newRow("scan") << false;
    QTest::newRow("clean") << true;
}

void TestWechatCleanPage::pageGoesInTheMiddle()
{
    QFETCH(bool, cleaning);
    Bench bench;
    for (int i = 0; i < 120; ++i)
        bench.home.file(kFiles + "/%1.bin"_u.arg(i), Bench::bytes('a'));
    bench.show();
    if (cleaning) {
        bench.scan();
        bench.answering("NoticeOkBtn",
                        [&bench] { clickOn(bench.page.get(), "WechatCleanAllButton"); });
        QTRY_VERIFY(textOf(bench.page.get(), "WechatBusyText").startsWith("正在执行清理，"_u));
    } else {
        clickOn(bench.page.get(), "WechatStartScanButton");
    }
    QCOMPARE(bench.page->state(), UiState::Busy);
    bench.page.reset();
    // Every name stands, with its content, and no backup does.
    const QStringList names = QDir(bench.home.path(kFiles)).entryList(QDir::Files | QDir::Hidden);
    QCOMPARE(names.size(), 120);
    for (const QString &name : names)
        QCOMPARE(contentOf(bench.file(name)), Bench::bytes('a'));
}

void TestWechatCleanPage::manyGroupsComeUpAtOnce()
{
    Bench bench;
    bench.fill();
    bench.show();
    bench.page->onDuplicateGroupsReady({});
    const QVariantList groups = manyGroups(2000, 12);
    QVERIFY(bench.page->isVisible());
    GapMeter meter;
    QCoreApplication::processEvents();
    bench.page->onDuplicateGroupsReady(groups);
    bench.answering("NoticeOkBtn", [&bench] { bench.page->onScanFinished(true, "done"_u, 2000); });
    const qint64 shownMs = meter.longestMs();

    auto *list = child<QAbstractScrollArea>(bench.page.get(), "WechatResultList");
    QScrollBar *bar = list->verticalScrollBar();
    GapMeter scrolling;
    for (int step = 0; step <= 50; ++step) {
        bar->setValue(bar->maximum() / 50 * step);
        QTest::qWait(1); // One pass of the event loop a step: layout and painting count.
    }
    qInfo() << "longest gap in ms: coming up" << shownMs << "scrolling" << scrolling.longestMs();
    bar->setValue(bar->maximum());
    QVERIFY(bench.cards().size() <= 12);
    QCOMPARE(bench.cards().last()->property("groupIndex").toInt(), 1999);
    QCOMPARE(bench.cards().last()->geometry().bottom() < list->viewport()->height(), true);
    // Actions come from the data: of cards that exist and of the others.
    QCOMPARE(bench.page->buildAllCleanActions().size(), 2000);
    const QVariantMap last = bench.page->buildCleanActionForCard(bench.cards().last());
    QCOMPARE(last, bench.page->buildAllCleanActions().last().toMap());
    // A choice outlives its card.
    const auto radios = bench.cards().last()->findChildren<QRadioButton *>();
    radios.last()->click();
    bar->setValue(0);
    QTRY_VERIFY(bench.cards().first()->property("groupIndex").toInt() == 0);
    bar->setValue(bar->maximum());
    QVERIFY(bench.cards().last()->findChildren<QRadioButton *>().last()->isChecked());
    QVERIFY2(shownMs < 1000 && scrolling.longestMs() < 1000, "far beyond a slow machine's excuse");
}

void TestWechatCleanPage::tabsThroughAllCards()
{
    Bench bench;
    bench.fill();
    bench.show();
    bench.page->onDuplicateGroupsReady(manyGroups(30, 2));
    bench.answering("NoticeOkBtn", [&bench] { bench.page->onScanFinished(true, ""_u, 30); });
    auto *list = child<QAbstractScrollArea>(bench.page.get(), "WechatResultList");
    QApplication::setActiveWindow(bench.page.get());
    child<QWidget>(bench.cards().first(), "WechatGroupClean")->setFocus();
    QSet<int> visited;
    for (int i = 0; i < 30 * 4 - 1; ++i) {
        QWidget *focus = QApplication::focusWidget();
        QVERIFY(focus && list->isAncestorOf(focus));
        for (QWidget *card : bench.cards()) {
            if (card->isAncestorOf(focus))
                visited << card->property("groupIndex").toInt();
        }
        const QRect shown(focus->mapTo(list->viewport(), QPoint()), focus->size());
        QVERIFY(list->viewport()->rect().contains(shown));
        if (visited.size() == 30)
            return;
        QTest::keyClick(focus, Qt::Key_Tab);
    }
    QFAIL(qPrintable("only %1 cards"_u.arg(visited.size())));
}

void TestWechatCleanPage::longGroupGrows()
{
    Bench bench;
    bench.fill();
    bench.show();
    bench.page->onDuplicateGroupsReady(manyGroups(1, 60));
    bench.answering("NoticeOkBtn", [&bench] { bench.page->onScanFinished(true, ""_u, 1); });
    auto *list = child<QAbstractScrollArea>(bench.page.get(), "WechatResultList");
    QCOMPARE(bench.cards().first()->findChildren<QRadioButton *>().size(), 20);
    QCOMPARE(
        bench.page->buildAllCleanActions().first().toMap().value("replacePaths"_u).toList().size(),
        59);
    list->verticalScrollBar()->setValue(list->verticalScrollBar()->maximum());
    clickOn(bench.cards().first(), "WechatGroupMore");
    QTRY_COMPARE(bench.cards().first()->findChildren<QRadioButton *>().size(), 60);
    QVERIFY(!child<QWidget>(bench.cards().first(), "WechatGroupMore"));
}

void TestWechatCleanPage::records()
{
    Bench bench;
    bench.show(UiState::NoDirectory);
    QWidget *history = bench.history();
    QTRY_COMPARE(textOf(history, "EmptyStateTitle"), "还没有清理记录。"_u);
    clickOn(history, "WechatHistoryClose");

    const auto write = [&bench](const QString &id, const QString &status) {
        const QString text =
            R"({"sessionId":"%1","createdAt":"%2","groupCount":1,"reclaimedBytes":"2048",)"
            R"("status":"%3","actions":[{"keepPath":"/k","size":"9","mergedPaths":["/a","/b"]}]})"_u;
        bench.home.file(kOperations + "/"_u + id + ".json"_u,
                        text.arg(id, "2026-01-0"_u + id + "T03:04:05"_u, status).toUtf8());
    };
    write("1"_u, "active"_u);
    write("2"_u, "undone"_u);
    write("3"_u, "invalid"_u);
    bench.home.file(kOperations + "/broken.json"_u, "{");
    QTRY_VERIFY(!child<QWidget>(bench.page.get(), "WechatHistoryDialog"));
    history = bench.history();
    QTRY_COMPARE(history->findChildren<QWidget *>("WechatRecordItem"_u).size(), 3);
    const auto items = history->findChildren<QWidget *>("WechatRecordItem"_u);
    QCOMPARE(items.first()->property("sessionId").toString(), "3"_u);
    QCOMPARE(history->findChildren<QWidget *>("WechatRecordUndoButton"_u).size(), 1);
    QVERIFY(textOf(history, "WechatHistoryNote").contains("1 个记录文件"_u));
    QCOMPARE(textOf(items.last(), "WechatRecordTime"), "2026-01-01 03:04"_u);

    clickOn(items.last(), "WechatRecordDetailButton");
    auto *files = child<QPlainTextEdit>(items.last(), "WechatRecordFiles");
    QVERIFY(files);
    QCOMPARE(files->toPlainText(), "第 1 组\n保留文件：\n/k\n已合并文件（2 个）：\n/a\n/b"_u);
    auto *toggle = child<QPushButton>(items.last(), "WechatRecordDetailButton");
    QCOMPARE(toggle->text(), "收起详情"_u);
    toggle->click();
    QCOMPARE(toggle->text(), "查看详情"_u);
    QVERIFY(!child<QWidget>(items.last(), "WechatRecordDetail"));

    // The files are long gone: nothing comes back, and the record says so from then on.
    bench.answering(
        "NoticeOkBtn", [&] { clickOn(items.last(), "WechatRecordUndoButton"); }, 2);
    QCOMPARE(bench.told.value(2), "撤销未完成"_u);
    QVERIFY(bench.told.value(3).contains("保留文件不存在，无法撤销：/k"_u));
    QTRY_VERIFY(!child<QWidget>(history, "WechatRecordUndoButton"));
    QCOMPARE(bench.page->state(), UiState::NoDirectory);
}

void TestWechatCleanPage::settings()
{
    WechatCleanSettingsDialog dialog;
    auto *spin = child<QSpinBox>(&dialog, "WechatMinSizeSpin");
    auto *unit = child<QComboBox>(&dialog, "WechatMinSizeUnit");
    const auto shown = [&](qint64 bytes) {
        WechatCleanSettingsDialog::Settings settings;
        settings.minSize = bytes;
        dialog.setSettings(settings);
        return QString::number(spin->value()) + unit->currentText();
    };
    QCOMPARE(dialog.settings().minSize, Q_INT64_C(1048576));
    QCOMPARE(shown(1048575), "1023KB"_u);
    QCOMPARE(shown(1), "1KB"_u);
    QCOMPARE(shown(1048576), "1MB"_u);
    QCOMPARE(shown(1073741823), "1023MB"_u);
    QCOMPARE(shown(Q_INT64_C(3) << 30), "3GB"_u);
    QCOMPARE(dialog.settings().minSize, Q_INT64_C(3) << 30);

    // Small files count once the setting says so.
    Bench bench;
    bench.home.file(kFiles + "/a.bin"_u, QByteArray(4096, 'a'));
    bench.home.file(kFiles + "/b.bin"_u, QByteArray(4096, 'a'));
    bench.show();
    ModalDriver driver([](QWidget *open) {
        child<QSpinBox>(open, "WechatMinSizeSpin")->setValue(4);
        child<QComboBox>(open, "WechatMinSizeUnit")->setCurrentIndex(0);
        clickOn(open, "WechatSettingsSave");
    });
    clickOn(bench.page.get(), "WechatSettingsButton");
    QVERIFY(driver.handled());
    bench.scan();
    QCOMPARE(bench.cards().size(), 1);
}

QTEST_MAIN(TestWechatCleanPage)
#include "tst_wechatcleanpage.moc"
