#include "wechatcleanfixture.h"

#include <QComboBox>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QSpinBox>

using namespace wechatclean;

namespace {

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

class TestWechatCleanLists : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { useLightTheme(); }
    void manyGroupsComeUpAtOnce();
    void tabsThroughAllCards();
    void longGroupGrows();
    void records();
    void settings();
};

void TestWechatCleanLists::manyGroupsComeUpAtOnce()
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
        QCoreApplication::processEvents(); // Layout and painting count.
    }
    const qint64 scrolledMs = scrolling.longestMs();
    qInfo() << "longest gap in ms: coming up" << shownMs << "scrolling" << scrolledMs;
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
    QVERIFY2(shownMs < 5000 && scrolledMs < 5000, "far beyond a slow machine's excuse");
}

void TestWechatCleanLists::tabsThroughAllCards()
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

void TestWechatCleanLists::longGroupGrows()
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

void TestWechatCleanLists::records()
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

void TestWechatCleanLists::settings()
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

QTEST_MAIN(TestWechatCleanLists)
#include "tst_wechatcleanlists.moc"
