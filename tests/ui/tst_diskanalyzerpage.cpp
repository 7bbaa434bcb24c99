#include "core/ipc/ipcclient.h"
#include "support/dialogsteps.h"
#include "support/fakeservice.h"
#include "support/temptree.h"
#include "ui/common/celldelegate.h"
#include "ui/common/resources.h"
#include "ui/common/theme.h"
#include "ui/pages/diskanalyzerpage.h"
#include "ui/pages/diskanalyzerpage/duplicategroups.h"
#include "ui/pages/diskanalyzerpage/duplicatelistview.h"
#include "ui/pages/diskanalyzerpage/filedeletion.h"
#include "ui/pages/diskanalyzerpage/largefilemodel.h"
#include "ui/pages/diskanalyzerpage/treemapwidget.h"
#include "vault/vaultcontroller.h"

#include <QCheckBox>
#include <QComboBox>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QPushButton>
#include <QSemaphore>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTabWidget>
#include <QTableView>
#include <QTest>
#include <QThreadPool>
#include <QTreeView>
#include <QtConcurrentRun>

#include <ctime>

using diskanalyzer::DuplicateListView;
using diskanalyzer::PartitionInfo;
using support::ModalDriver;
using testsupport::FakeService;

namespace {

enum Tab { LargeFiles, Directories, Duplicates };

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

PartitionInfo partition(const char *mountPath, qint64 used)
{
    PartitionInfo info;
    info.mountPath = text(mountPath);
    info.device = text("/dev/") + text(mountPath).section(QLatin1Char('/'), -1);
    info.fsType = text("ext4");
    info.totalBytes = 100;
    info.usedBytes = used;
    return info;
}

QVariantMap scanned(const QString &path)
{
    const QFileInfo info(path);
    return {{text("path"), path},
            {text("size"), info.size()},
            {text("modified"), info.lastModified()},
            {text("aliasCount"), 0}};
}

QVariantMap directory(const QString &name, qint64 total, qint64 own,
                      const QVariantList &children = QVariantList())
{
    return {{text("name"), name},
            {text("totalSize"), total},
            {text("fileSize"), own},
            {text("children"), children}};
}

QVariantList groupsOf(const QVector<QVariantList> &groups, qint64 size)
{
    QVariantList list = {QVariantMap{{text("totalGroups"), groups.size()},
                                     {text("totalReclaimable"), size * groups.size()},
                                     {text("shownGroups"), groups.size()}}};
    for (const QVariantList &files : groups)
        list.append(
            QVariantMap{{text("size"), size}, {text("hash"), text("00")}, {text("files"), files}});
    return list;
}

QModelIndex below(const QModelIndex &parent, int row, int column = 0)
{
    return parent.model()->index(row, column, parent);
}

/// Milliseconds of processor time that this thread has used.
double threadMs()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1000 + double(time.tv_nsec) / 1e6;
}

} // namespace

class TestDiskAnalyzerPage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void choosesPartitions();
    void scansForReal();
    void showsResultsDuringComparisons();
    void stopsWithThePage();
    void endsInEveryTab_data();
    void endsInEveryTab();
    void deletesTickedFiles();
    void warnsOfProtectedFiles();
    void cleansGroups();
    void deletesOnlyWhatWasScanned_data();
    void deletesOnlyWhatWasScanned();
    void keepsTreeAndPictureInStep();
    void editsSettings();
    void neverStalls();

private:
    template <typename T>
    T *child(const char *name) const
    {
        return m_page->findChild<T *>(QLatin1String(name));
    }
    QString label(const char *name) const { return child<QLabel>(name)->text(); }
    void press(const char *name) { QTest::mouseClick(child<QPushButton>(name), Qt::LeftButton); }
    QAbstractItemModel *model(const char *name) const
    {
        return child<QAbstractItemView>(name)->model();
    }
    void show(Tab tab) { child<QTabWidget>("AnalyzerTabs")->setCurrentIndex(tab); }
    QStringList emptyTitles() const;
    void clickPart(int row, DuplicateListView::Part part);
    /// Runs `act`, which opens a question and later a notice; presses confirm in both.
    QStringList confirming(const std::function<void()> &act);

    QScopedPointer<TempTree> m_tree;
    QScopedPointer<DiskAnalyzerPage> m_page;
};

void TestDiskAnalyzerPage::initTestCase()
{
    ui::common::initResources();
    ui::common::ThemeColors::init(ui::common::ThemeType::light, 1.0);
    qApp->setStyleSheet(ui::common::buildAppStyleSheet(ui::common::ThemeType::light));
}

void TestDiskAnalyzerPage::init()
{
    m_tree.reset(new TempTree);
    m_page.reset(new DiskAnalyzerPage(nullptr));
    m_page->setPartitionProvider([] {
        return QVector<PartitionInfo>{partition("/opt", 95), partition("/data", 40)};
    });
    m_page->resize(1000, 660);
    m_page->show();
    QVERIFY(QTest::qWaitForWindowActive(m_page.data()));
    QTRY_COMPARE(m_page->findChildren<QFrame *>(text("PartitionCard")).size(), 2);
}

void TestDiskAnalyzerPage::cleanup()
{
    m_page.reset();
    m_tree.reset();
}

QStringList TestDiskAnalyzerPage::emptyTitles() const
{
    QStringList titles;
    const auto tabs = child<QTabWidget>("AnalyzerTabs");
    for (int i = 0; i < tabs->count(); ++i)
        titles += tabs->widget(i)->findChild<QLabel *>(text("EmptyStateTitle"))->text();
    return titles;
}

void TestDiskAnalyzerPage::clickPart(int row, DuplicateListView::Part part)
{
    auto *list = child<DuplicateListView>("DuplicateList");
    const QRect rect = list->partRect(list->model()->index(row, 0), part);
    QVERIFY(!rect.isEmpty());
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier, rect.center());
}

QStringList TestDiskAnalyzerPage::confirming(const std::function<void()> &act)
{
    QStringList texts;
    {
        ModalDriver question(support::presses("NoticeOkBtn", &texts));
        act();
        if (!QTest::qWaitFor([&question] { return question.handled(); }))
            return texts;
    }
    ModalDriver notice(support::presses("NoticeOkBtn", &texts));
    const bool told = QTest::qWaitFor([&notice] { return notice.handled(); });
    return told ? texts : QStringList{text("no notice")};
}

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
    QCOMPARE(texts, QStringList({text("确认删除"), text("将删除 1 个未勾选的文件，确定？"),
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
    m_page->scanPath(text("/"));
    // A moment into the walk; the tree is too large to be through by then.
    QTest::qWait(100);
    QVERIFY(m_page->isScanning());
    press("AnalyzerStopButton");
    QCOMPARE(label("AnalyzerStatusLabel"), text("正在停止..."));
    QTRY_VERIFY(!m_page->isScanning());
    QCOMPARE(label("AnalyzerStatusLabel"), text("用户取消"));
    // Stopped before the worker has so much as begun.
    m_page->scanPath(text("/"));
    QElapsedTimer clock;
    clock.start();
    m_page.reset();
    qInfo("ended %lld ms after the page", clock.elapsed());
    QVERIFY(clock.elapsed() < 1000);
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

void TestDiskAnalyzerPage::deletesTickedFiles()
{
    const QString first = m_tree->file("a.bin", QByteArray(2048, 'a'));
    const QString second = m_tree->file("b.bin", QByteArray(1024, 'b'));
    const QString third = m_tree->file("c.bin", QByteArray(512, 'c'));
    m_page->onLargeFilesReady({scanned(first), scanned(second), scanned(third)});
    QTRY_COMPARE(model("LargeFileTable")->rowCount(), 3);
    auto *table = child<QTableView>("LargeFileTable");
    QVERIFY(!child<QPushButton>("LargeFileDeleteButton")->isEnabled());
    table->setFocus();
    table->selectRow(0);
    QTest::keyClick(table, Qt::Key_Space);
    table->selectRow(2);
    QTest::keyClick(table, Qt::Key_Space);
    QCOMPARE(label("LargeFileFooter"), text("选中 2 个文件，共 2.5 KB"));
    // One of them goes before it can be deleted.
    QVERIFY(QFile::remove(third));

    QStringList texts = confirming([this] { press("LargeFileDeleteButton"); });
    QCOMPARE(texts.at(0), text("确认删除"));
    QCOMPARE(texts.at(1), text("即将删除 2 个文件，此操作不可撤销。"));
    QCOMPARE(texts.at(2), text("删除完成"));
    QVERIFY(texts.at(3).startsWith(text("成功删除 1 个文件")));
    QVERIFY(texts.at(3).contains(text("无法删除文件，可能权限不足")));
    QVERIFY(!QFile::exists(first));
    QCOMPARE(model("LargeFileTable")->rowCount(), 2);

    // The button of one row; a no leaves the file.
    auto *delegate = qobject_cast<ui::common::CellDelegate *>(table->itemDelegate());
    const QModelIndex cell = table->model()->index(0, diskanalyzer::LargeFileModel::ActionColumn);
    texts.clear();
    ModalDriver driver(support::presses("NoticeCancelBtn", &texts));
    QTest::mouseClick(table->viewport(), Qt::LeftButton, Qt::NoModifier,
                      delegate->actionRect(cell, 1).center());
    QTRY_VERIFY(driver.handled());
    QCOMPARE(texts.at(1), text("确定要删除文件 %1 吗？").arg(second));
    QVERIFY(QFile::exists(second));

    QString opened;
    m_page->setDirectoryOpener([&opened](const QString &path) { opened = path; });
    QTest::mouseClick(table->viewport(), Qt::LeftButton, Qt::NoModifier,
                      delegate->actionRect(cell, 0).center());
    QTRY_COMPARE(opened, m_tree->path());
}

void TestDiskAnalyzerPage::warnsOfProtectedFiles()
{
    FakeService service;
    QVERIFY(service.start());
    service.reply(text("vault.getConfig"),
                  {{text("protectedDirs"), QJsonArray{m_tree->path("docs")}}});
    core::ipc::IpcClient client(service.name());
    VaultController vault(&client);
    m_page->setVaultController(&vault);
    client.connectToService();
    QVERIFY(service.waitForRequest(text("vault.getConfig")));

    const QString inside = m_tree->file("docs/a.bin");
    const QString outside = m_tree->file("docs2/b.bin");
    m_page->onLargeFilesReady({scanned(inside), scanned(outside)});
    QTRY_COMPARE(model("LargeFileTable")->rowCount(), 2);
    QTest::mouseClick(child<QCheckBox>("LargeFileSelectAll"), Qt::LeftButton);
    const auto question = [this] {
        QStringList texts;
        ModalDriver driver(support::presses("NoticeCancelBtn", &texts));
        press("LargeFileDeleteButton");
        return texts.value(1);
    };
    QTRY_VERIFY(question().contains(text("其中 1 个文件位于受保护目录下")));
    m_page->onDuplicateGroupsReady(groupsOf({{scanned(outside), scanned(inside)}}, 0));
    QTRY_COMPARE(model("DuplicateList")->rowCount(), 3);
    show(Duplicates);
    {
        QStringList texts;
        ModalDriver driver(support::presses("NoticeCancelBtn", &texts));
        press("DuplicateCleanButton");
        QVERIFY(texts.value(1).contains(text("其中 1 个文件位于受保护目录下")));
    }
    show(LargeFiles);
    service.dropClients();
    QTRY_VERIFY(!vault.isConnected());
    QVERIFY(!question().contains(text("受保护")));
}

void TestDiskAnalyzerPage::cleansGroups()
{
    QVector<QVariantList> groups;
    for (const char *name : {"a", "b"}) {
        QVariantList files;
        for (int i = 0; i < 3; ++i)
            files.append(
                scanned(m_tree->file(text("%1%2").arg(text(name)).arg(i), QByteArray(100, *name))));
        groups.append(files);
    }
    m_page->onDuplicateGroupsReady(groupsOf(groups, 100));
    QTRY_COMPARE(model("DuplicateList")->rowCount(), 8);
    show(Duplicates);
    auto *list = child<DuplicateListView>("DuplicateList");

    // All kept: nothing to delete. By mouse in the second row of files, by key in the third.
    clickPart(2, DuplicateListView::KeepPart);
    list->setCurrentIndex(list->model()->index(3, 0));
    QTest::keyClick(list, Qt::Key_Space);
    QStringList texts;
    {
        ModalDriver driver(support::presses("NoticeOkBtn", &texts));
        clickPart(0, DuplicateListView::DeletePart);
        QVERIFY(driver.handled());
    }
    QCOMPARE(texts.at(1), text("所有文件均已勾选保留，没有可删除的文件"));

    texts = confirming([this] { press("DuplicateCleanButton"); });
    QCOMPARE(texts.at(1), text("将删除所有重复文件组中未勾选的 2 个文件，确定继续？"));
    QCOMPARE(texts.at(2), text("清理完成"));
    QVERIFY(QFile::exists(m_tree->path("b0")));
    QVERIFY(!QFile::exists(m_tree->path("b1")));
    QVERIFY(QFile::exists(m_tree->path("a1")));
    QCOMPARE(list->model()->rowCount(), 4);
    {
        texts.clear();
        ModalDriver driver(support::presses("NoticeOkBtn", &texts));
        press("DuplicateCleanButton");
        QVERIFY(driver.handled());
    }
    QCOMPARE(texts.at(1), text("没有需要删除的文件"));
}

void TestDiskAnalyzerPage::deletesOnlyWhatWasScanned_data()
{
    QTest::addColumn<QString>("change");
    QTest::addColumn<bool>("removed");
    QTest::newRow("nothing changed") << QString() << true;
    QTest::newRow("longer") << text("longer") << false;
    QTest::newRow("newer") << text("newer") << false;
    QTest::newRow("a link to the copy") << text("link") << false;
    QTest::newRow("copy gone") << text("copy gone") << false;
    QTest::newRow("copy changed") << text("copy changed") << false;
    QTest::newRow("no copy kept on purpose") << text("none kept") << true;
}

void TestDiskAnalyzerPage::deletesOnlyWhatWasScanned()
{
    using namespace diskanalyzer;
    QFETCH(QString, change);
    const QString keep = m_tree->file("keep", "same");
    const QString drop = m_tree->file("drop", "same");
    const DuplicateResult result =
        duplicateResultFromList(groupsOf({{scanned(keep), scanned(drop)}}, 4));
    DeletionGroup group = deletionOf(result.groups.first());
    QCOMPARE(group.keep.size(), 1);
    if (change == text("longer")) {
        m_tree->file("drop", "longer");
    } else if (change == text("newer")) {
        QFile file(drop);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(QDateTime::currentDateTime().addSecs(9),
                                 QFileDevice::FileModificationTime));
    } else if (change == text("link")) {
        QVERIFY(QFile::remove(drop));
        m_tree->link("drop", keep);
    } else if (change == text("copy gone")) {
        QVERIFY(QFile::remove(keep));
    } else if (change == text("copy changed")) {
        m_tree->file("keep", "other");
    } else if (change == text("none kept")) {
        group.keep.clear();
    }
    const DeletionReport report = deleteFiles({group}, [] { return false; });
    QTEST(!QFileInfo(drop).isSymLink() && !QFile::exists(drop), "removed");
    QTEST(report.isComplete(), "removed");
    QCOMPARE(noticeOf(report, true).title,
             report.isComplete() ? text("清理完成") : text("删除失败"));
    QCOMPARE(deleteFiles({group}, [] { return true; }).removed.size(), 0);
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
