#include "diskanalyzerfixture.h"
#include "ui/pages/diskanalyzerpage/treemapwidget.h"

#include <QComboBox>
#include <QElapsedTimer>
#include <QSemaphore>
#include <QSpinBox>
#include <QThreadPool>
#include <QTreeView>
#include <QWheelEvent>
#include <QtConcurrentRun>

#include <ctime>

using namespace diskanalyzertest;

namespace {

/// Milliseconds of processor time that this thread has used.
double threadMs()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1000 + double(time.tv_nsec) / 1e6;
}

/// Over the first block, in eighths of a degree; forward above 0.
void turnWheel(TreemapWidget *picture, int angle)
{
    const QPointF at = picture->rectOf(0).center();
    const QPointF onScreen = picture->mapToGlobal(at.toPoint());
#if QT_VERSION >= QT_VERSION_CHECK(5, 12, 0)
    QWheelEvent event(at, onScreen, QPoint(), QPoint(0, angle), Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
#else
    QWheelEvent event(at, onScreen, QPoint(), QPoint(0, angle), angle, Qt::Vertical, Qt::NoButton,
                      Qt::NoModifier);
#endif
    QApplication::sendEvent(picture, &event);
}

} // namespace

class TestDiskAnalyzerPage : public QObject, private DiskAnalyzerBench
{
    Q_OBJECT

private slots:
    void initTestCase() { setUpTheme(); }
    void init() { setUp(); }
    void cleanup() { tearDown(); }
    void choosesPartitions();
    void choosesTheOnlyPartition();
    void scansForReal();
    void showsResultsDuringComparisons();
    void stopsWithThePage();
    void endsInEveryTab_data();
    void endsInEveryTab();
    void keepsTreeAndPictureInStep();
    void zoomsByWheel();
    void editsSettings();
    void neverStalls();
};

void TestDiskAnalyzerPage::choosesPartitions()
{
    QStringList texts;
    ModalDriver driver(support::presses("NoticeOkBtn", &texts));
    press("AnalyzerStartButton");
    QVERIFY(driver.handled());
    QCOMPARE(texts, QStringList({text("提示"), text("请先选择一个分区")}));
    QVERIFY(!m_page->isScanning());

    const QList<QFrame *> cards = m_page->findChildren<QFrame *>(text("PartitionCard"));
    QCOMPARE(cards.first()->property("mountPath").toString(), text("/data"));
    QTest::mouseClick(cards.first(), Qt::LeftButton);
    QVERIFY(cards.first()->property("selected").toBool());
    QCOMPARE(label("AnalyzerStatusLabel"), text("已选择 数据盘  /data，点击开始扫描"));
    QTest::keyClick(cards.first(), Qt::Key_Right);
    QVERIFY(cards.last()->property("selected").toBool());
    QVERIFY(!cards.first()->property("selected").toBool());
    QCOMPARE(m_page->focusWidget(), cards.last());

    // A reading keeps the choice by its path, and drops it with the partition.
    press("AnalyzerRefreshButton");
    QTRY_VERIFY(!m_page->findChildren<QFrame *>(text("PartitionCard")).contains(cards.last()));
    const auto chosen = [this] {
        for (const QFrame *card : m_page->findChildren<QFrame *>(text("PartitionCard"))) {
            if (card->property("selected").toBool())
                return card->property("mountPath").toString();
        }
        return QString();
    };
    QTRY_COMPARE(chosen(), text("/opt"));
    m_page->setPartitionProvider([] { return QVector<PartitionInfo>(); });
    QTRY_COMPARE(label("PartitionStripText"), text("没有找到可以分析的分区"));
}

void TestDiskAnalyzerPage::choosesTheOnlyPartition()
{
    m_page->setPartitionProvider([] { return QVector<PartitionInfo>{partition("/data", 40)}; });
    QTRY_COMPARE(label("AnalyzerStatusLabel"), text("已选择 数据盘  /data，点击开始扫描"));
    const QList<QFrame *> cards = m_page->findChildren<QFrame *>(text("PartitionCard"));
    QVERIFY(cards.last()->property("selected").toBool());
}

void TestDiskAnalyzerPage::scansForReal()
{
    m_tree->file("films/big.mkv", QByteArray(300 * 1024, 'b'));
    m_tree->file("films/copy.mkv", QByteArray(300 * 1024, 'b'));
    m_tree->file("notes/small.txt", QByteArray(10, 's'));
    AnalyzerSettingsDialog::Settings settings;
    settings.largeFileThreshold = 100 * 1024;
    settings.dupMinSize = 1024;
    m_page->setScanSettings(settings);
    m_page->scanPath(m_tree->path());
    QVERIFY(m_page->isScanning());
    QVERIFY(child<QPushButton>("AnalyzerStopButton")->isVisible());
    QTRY_VERIFY_WITH_TIMEOUT(!m_page->isScanning(), 20000);
    QCOMPARE(label("AnalyzerStatusLabel"), text("扫描完成，共扫描到 2 个大文件、1 组重复文件"));
    QTRY_COMPARE(model("LargeFileTable")->rowCount(), 2);
    QTRY_COMPARE(model("DuplicateList")->rowCount(), 3);
    QTRY_COMPARE(model("DirTree")->rowCount(), 1);
    const QModelIndex root = model("DirTree")->index(0, 0);
    QCOMPARE(root.data().toString(), m_tree->path());
    QCOMPARE(below(root, 0).data().toString(), text("films"));
    QCOMPARE(below(root, 0, 1).data().toString(), text("600.0 KB"));

    show(Duplicates);
    const QStringList texts = confirming([this] { clickPart(0, DuplicateListView::DeletePart); });
    QCOMPARE(texts, QStringList({text("确认删除"),
                                 text("将删除 1 个未勾选的文件，确定？\n\n"
                                      "文件将被永久删除，无法恢复。"),
                                 text("清理完成"), text("成功删除 1 个文件")}));
    QCOMPARE(QFile::exists(m_tree->path("films/big.mkv")) +
                 QFile::exists(m_tree->path("films/copy.mkv")),
             1);
    QCOMPARE(model("LargeFileTable")->rowCount(), 1);
    QCOMPARE(model("DuplicateList")->rowCount(), 0);
    QCOMPARE(below(root, 0, 1).data().toString(), text("300.0 KB"));
}

void TestDiskAnalyzerPage::showsResultsDuringComparisons()
{
    // Every thread of the global pool is busy, as while large files are compared.
    QSemaphore end;
    const int threads = QThreadPool::globalInstance()->maxThreadCount();
    for (int i = 0; i < threads; ++i)
        QtConcurrent::run([&end] { end.acquire(); });
    const QString path = m_tree->file("a.bin", "a");
    m_page->onLargeFilesReady({scanned(path)});
    m_page->onDirectoryTreeReady(directory(m_tree->path(), 1, 1));
    const bool shown = QTest::qWaitFor([this] {
        return model("LargeFileTable")->rowCount() == 1 && model("DirTree")->rowCount() == 1;
    });
    end.release(threads);
    QThreadPool::globalInstance()->waitForDone();
    QVERIFY(shown);
}

void TestDiskAnalyzerPage::stopsWithThePage()
{
    // Files without content on the disk, which take minutes to compare.
    for (const char *name : {"a", "b"}) {
        QFile file(m_tree->file(name));
        QVERIFY(file.resize(qint64(64) << 30));
    }
    m_page->scanPath(m_tree->path());
    QTRY_VERIFY(label("AnalyzerStatusLabel").startsWith(text("正在检测重复文件")));
    press("AnalyzerStopButton");
    QCOMPARE(label("AnalyzerStatusLabel"), text("正在停止..."));
    QTRY_VERIFY(!m_page->isScanning());
    QCOMPARE(label("AnalyzerStatusLabel"), text("用户取消"));
    // Stopped before the worker has so much as begun.
    m_page->scanPath(m_tree->path());
    QElapsedTimer clock;
    clock.start();
    m_page.reset();
    QVERIFY2(clock.elapsed() < 10000, qPrintable(QString::number(clock.elapsed())));
}

void TestDiskAnalyzerPage::endsInEveryTab_data()
{
    QTest::addColumn<bool>("success");
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("warned");
    QTest::addColumn<QString>("otherTabs");
    QTest::newRow("done") << true << text("完") << false << text("正在扫描...");
    QTest::newRow("stopped") << false << text("用户取消") << false << text("扫描已停止");
    QTest::newRow("failed") << false << text("坏了") << true << text("扫描失败");
}

void TestDiskAnalyzerPage::endsInEveryTab()
{
    QFETCH(bool, success);
    QFETCH(QString, message);
    QFETCH(QString, otherTabs);
    // Goes on behind all this, and sends nothing before it ends.
    m_page->scanPath(text("/"));
    QCOMPARE(emptyTitles().first(), text("正在扫描..."));
    m_page->onLargeFilesReady({});
    QTRY_COMPARE(emptyTitles().first(), text("未找到超过阈值的大文件"));
    QStringList texts;
    ModalDriver driver(support::presses("NoticeOkBtn", &texts));
    m_page->onScanFinished(success, message, 0, 0);
    QTEST(driver.handled(), "warned");
    if (driver.handled())
        QCOMPARE(texts, QStringList({text("扫描"), message}));
    QCOMPARE(emptyTitles().first(), text("未找到超过阈值的大文件"));
    QCOMPARE(emptyTitles().last(), otherTabs);
    m_page->onDuplicateGroupsReady({});
    QTRY_COMPARE(emptyTitles().last(), text("未扫描到重复文件"));
}

void TestDiskAnalyzerPage::keepsTreeAndPictureInStep()
{
    m_tree->file("big/inner/deep.txt", "0123456789");
    m_tree->file("big/film.mkv", "0123456789");
    m_tree->file("big/notes.txt", "01234");
    m_tree->file("top.txt", "0");
    m_page->scanPath(m_tree->path());
    QTRY_VERIFY(!m_page->isScanning());
    QTRY_COMPARE(model("DirTree")->rowCount(), 1);
    show(Directories);
    auto *tree = child<QTreeView>("DirTree");
    auto *picture = child<TreemapWidget>("DirTreemap");
    QCOMPARE(label("DirPathLabel"), m_tree->path());
    QVERIFY(!child<QPushButton>("DirUpButton")->isEnabled());
    const QModelIndex big = below(tree->currentIndex(), 0);

    QCOMPARE(model("DirFileTable")->rowCount(), 0);
    QTest::mouseClick(tree->viewport(), Qt::LeftButton, Qt::NoModifier,
                      tree->visualRect(tree->currentIndex()).center());
    QTRY_COMPARE(model("DirFileTable")->rowCount(), 1);

    // Picture to tree.
    QTRY_VERIFY(!picture->rectOf(0).isEmpty());
    QTest::mouseClick(picture, Qt::LeftButton, Qt::NoModifier,
                      picture->rectOf(0).center().toPoint());
    QCOMPARE(tree->currentIndex(), big);
    QCOMPARE(picture->items().size(), 2);
    QTRY_COMPARE(model("DirFileTable")->rowCount(), 2);
    QCOMPARE(model("DirFileTable")->index(0, 0).data().toString(), text("film.mkv"));
    picture->setFocus();
    const int first = picture->currentIndex();
    QTest::keyClick(picture, Qt::Key_Right);
    QVERIFY(picture->currentIndex() != first);
    QTest::keyClick(picture, Qt::Key_Return);
    QCOMPARE(tree->currentIndex().data().toString(), text("inner"));
    QTest::keyClick(picture, Qt::Key_Backspace);
    QCOMPARE(tree->currentIndex(), big);

    // Tree to picture.
    const QModelIndex inner = below(big, 0);
    tree->expand(big);
    QTest::mouseClick(tree->viewport(), Qt::LeftButton, Qt::NoModifier,
                      tree->visualRect(inner).center());
    QCOMPARE(label("DirPathLabel"), m_tree->path("big/inner"));
    QTRY_COMPARE(model("DirFileTable")->index(0, 0).data().toString(), text("deep.txt"));
    press("DirUpButton");
    QCOMPARE(tree->currentIndex(), big);
}

void TestDiskAnalyzerPage::zoomsByWheel()
{
    m_tree->file("big/inner/deep.txt", "0123456789");
    m_tree->file("top.txt", "0");
    m_page->scanPath(m_tree->path());
    QTRY_VERIFY(!m_page->isScanning());
    QTRY_COMPARE(model("DirTree")->rowCount(), 1);
    show(Directories);
    auto *picture = child<TreemapWidget>("DirTreemap");
    QTRY_VERIFY(!picture->rectOf(0).isEmpty());
    const QString top = m_tree->path();
    const QString big = m_tree->path("big");

    turnWheel(picture, 60);
    QCOMPARE(label("DirPathLabel"), top);
    turnWheel(picture, -60); // Turning back begins anew.
    turnWheel(picture, 60);
    QCOMPARE(label("DirPathLabel"), top);
    turnWheel(picture, 60);
    QCOMPARE(label("DirPathLabel"), big);
    turnWheel(picture, 120);
    QCOMPARE(label("DirPathLabel"), m_tree->path("big/inner"));
    turnWheel(picture, 120); // Only files are left: nothing to go into.
    QCOMPARE(label("DirPathLabel"), m_tree->path("big/inner"));
    turnWheel(picture, -120);
    QCOMPARE(label("DirPathLabel"), big);
    turnWheel(picture, -120);
    QCOMPARE(label("DirPathLabel"), top);
    turnWheel(picture, -120); // Nothing is above what was scanned.
    QCOMPARE(label("DirPathLabel"), top);
}

void TestDiskAnalyzerPage::editsSettings()
{
    QTest::mouseClick(m_page->findChild<QFrame *>(text("PartitionCard")), Qt::LeftButton);
    ModalDriver driver([](QWidget *dialog) {
        const auto spin = [dialog](const char *name) {
            return dialog->findChild<QSpinBox *>(QLatin1String(name));
        };
        const auto combo = [dialog](const char *name) {
            return dialog->findChild<QComboBox *>(QLatin1String(name));
        };
        QCOMPARE(dialog->windowTitle(), text("扫描设置"));
        QCOMPARE(spin("ThresholdNumber")->value(), 1);
        QCOMPARE(combo("ThresholdUnit")->currentText(), text("GB"));
        QCOMPARE(combo("MaxFilesCombo")->currentText(), text("500"));
        QCOMPARE(spin("DuplicateSizeNumber")->value(), 1);
        QCOMPARE(combo("DuplicateSizeUnit")->currentText(), text("MB"));
        combo("ThresholdUnit")->setCurrentIndex(1);
        combo("MaxFilesCombo")->setCurrentIndex(4);
        combo("CompareCombo")->setCurrentIndex(1);
        spin("DuplicateSizeNumber")->setValue(3);
        auto *wanted = dialog->findChild<QCheckBox *>(text("FindDuplicatesBox"));
        QTest::mouseClick(wanted, Qt::LeftButton, Qt::NoModifier, QPoint(8, 10));
        QVERIFY(!combo("CompareCombo")->isEnabled());
        AnalyzerSettingsDialog::Settings got;
        connect(static_cast<AnalyzerSettingsDialog *>(dialog),
                &AnalyzerSettingsDialog::startScanRequested, dialog,
                [&got](const AnalyzerSettingsDialog::Settings &settings) { got = settings; });
        QTest::mouseClick(dialog->findChild<QPushButton *>(text("AnalyzerSettingsStart")),
                          Qt::LeftButton);
        QCOMPARE(got.largeFileThreshold, qint64(1048576));
        QCOMPARE(got.maxLargeFiles, 0);
        QCOMPARE(got.findDuplicates, false);
        QCOMPARE(got.duplicateByHash, false);
        QCOMPARE(got.dupMinSize, qint64(3145728));
    });
    press("AnalyzerSettingsButton");
    QVERIFY(driver.handled());
    QVERIFY(m_page->isScanning());
    QTRY_VERIFY(!m_page->isScanning());
}

void TestDiskAnalyzerPage::neverStalls()
{
    QVariantList large;
    QVector<QVariantList> groups;
    for (int i = 0; i < 500; ++i) {
        QVariantList files;
        for (int j = 0; j < 20; ++j)
            files.append(QVariantMap{{text("path"), text("/x/%1/%2").arg(i).arg(j)}});
        large.append(files.first());
        groups.append(files);
    }
    QVariantList top;
    // The last one is a directory of a cache, flat and wide.
    for (int i = 0; i < 200; ++i) {
        QVariantList children;
        for (int j = 0; j < (i == 199 ? 50000 : 1000); ++j)
            children.append(directory(QString::number(j), 10 + j, 10));
        top.append(directory(QString::number(i), 1000000 - i, 0, children));
    }
    const QVariantMap root = directory(QString(), 200000000, 0, top);

    double longest = 0;
    double last = threadMs();
    QTimer beat;
    connect(&beat, &QTimer::timeout, this, [&longest, &last] {
        longest = qMax(longest, threadMs() - last);
        last = threadMs();
    });
    beat.start(0);
    // Each step from the event loop, as the worker's signals would come.
    const auto step = [this](const std::function<void()> &work) {
        bool done = false;
        QTimer::singleShot(0, m_page.data(), [&] {
            work();
            done = true;
        });
        QTRY_VERIFY(done);
    };
    auto *tree = child<QTreeView>("DirTree");
    step([&] { m_page->onLargeFilesReady(large); });
    step([&] { m_page->onDirectoryTreeReady(root); });
    step([&] { m_page->onDuplicateGroupsReady(groupsOf(groups, 1000)); });
    QTRY_COMPARE_WITH_TIMEOUT(model("DirTree")->rowCount(), 1, 30000);
    QTRY_COMPARE(model("DuplicateList")->rowCount(), 500 * 21);
    for (Tab tab : {LargeFiles, Duplicates, Directories})
        step([&] { show(tab); });
    const QModelIndex top0 = tree->model()->index(0, 0);
    for (int i = 0; i < 100; ++i)
        step([&] { tree->expand(below(top0, i)); });
    step([&] { tree->setCurrentIndex(below(below(top0, 99), 500)); });
    step([&] { tree->expand(below(top0, 199)); });
    step([&] { tree->setCurrentIndex(below(top0, 199)); });
    step([&] { tree->scrollToBottom(); });
    step([&] { m_page->scanPath(m_tree->path()); });
    QTRY_VERIFY(!m_page->isScanning());
    qInfo("longest stretch of work in the event loop: %.1f ms", longest);
    QVERIFY(longest < 100);
}

QTEST_MAIN(TestDiskAnalyzerPage)
#include "tst_diskanalyzerpage.moc"
