#include "core/ipc/ipcclient.h"
#include "diskanalyzerfixture.h"
#include "support/privatemounts.h"
#include "ui/common/celldelegate.h"
#include "ui/pages/diskanalyzerpage/deletionnotice.h"
#include "ui/pages/diskanalyzerpage/largefilemodel.h"
#include "vault/vaultcontroller.h"

#include <QJsonArray>
#include <QTableView>

using namespace diskanalyzertest;

class TestDiskAnalyzerDeletion : public QObject, private DiskAnalyzerBench
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_hasMounts = testsupport::enterPrivateMounts();
        setUpTheme();
    }
    void init() { setUp(); }
    void cleanup() { tearDown(); }
    void deletesTickedFiles();
    void asksBetweenTrashAndDeletion_data();
    void asksBetweenTrashAndDeletion();
    void promisesTheVaultOnlyInForce_data();
    void promisesTheVaultOnlyInForce();
    void cleansGroups();
    void deletesOnlyWhatWasScanned_data();
    void deletesOnlyWhatWasScanned();
    void staysInsideTheScannedTree_data();
    void staysInsideTheScannedTree();

private:
    bool m_hasMounts = false;
};

void TestDiskAnalyzerDeletion::deletesTickedFiles()
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
    QVERIFY(texts.at(1).startsWith(text("移到回收站：之后可以还原")));
    QVERIFY(texts.at(1).contains(text("永久删除：即将删除 2 个文件，此操作不可撤销。")));
    QCOMPARE(texts.at(2), text("删除完成"));
    QVERIFY(texts.at(3).startsWith(text("成功删除 1 个文件，已移到回收站")));
    QVERIFY(texts.at(3).contains(third + text("（文件已不存在）")));
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
    QVERIFY(texts.at(1).startsWith(text("确定要删除文件 %1 吗？").arg(second)));
    QVERIFY(QFile::exists(second));

    QString opened;
    m_page->setDirectoryOpener([&opened](const QString &path) { opened = path; });
    QTest::mouseClick(table->viewport(), Qt::LeftButton, Qt::NoModifier,
                      delegate->actionRect(cell, 0).center());
    QTRY_COMPARE(opened, m_tree->path());
}

void TestDiskAnalyzerDeletion::asksBetweenTrashAndDeletion_data()
{
    QTest::addColumn<QString>("answer");
    QTest::addColumn<bool>("exists");
    QTest::addColumn<bool>("trashed");
    QTest::newRow("Enter") << text("Enter") << true << false;
    QTest::newRow("Esc") << text("Esc") << true << false;
    QTest::newRow("the trash") << text("NoticeOkBtn") << false << true;
    QTest::newRow("for good") << text("DeletionPermanentBtn") << false << false;
    QTest::newRow("cancel") << text("NoticeCancelBtn") << true << false;
}

void TestDiskAnalyzerDeletion::asksBetweenTrashAndDeletion()
{
    QFETCH(QString, answer);
    QFETCH(bool, exists);
    const QString name = text("film %1.bin").arg(QLatin1String(QTest::currentDataTag()));
    const QString path = m_tree->file(name, "film");
    m_page->onLargeFilesReady({scanned(path)});
    QTRY_COMPARE(model("LargeFileTable")->rowCount(), 1);
    QTest::mouseClick(child<QCheckBox>("LargeFileSelectAll"), Qt::LeftButton);
    QStringList labels;
    ModalDriver question([&](QWidget *dialog) {
        for (const char *button : {"NoticeCancelBtn", "DeletionPermanentBtn", "NoticeOkBtn"})
            labels += dialog->findChild<QPushButton *>(QLatin1String(button))->text();
        if (answer == text("Enter"))
            QTest::keyClick(dialog->focusWidget(), Qt::Key_Return);
        else if (answer == text("Esc"))
            QTest::keyClick(dialog, Qt::Key_Escape);
        else
            QTest::mouseClick(dialog->findChild<QPushButton *>(answer), Qt::LeftButton);
    });
    press("LargeFileDeleteButton");
    QVERIFY(question.handled());
    QCOMPARE(labels, QStringList({text("取消"), text("永久删除"), text("移到回收站")}));
    if (!exists) {
        QStringList texts;
        ModalDriver notice(support::presses("NoticeOkBtn", &texts));
        QTRY_VERIFY(notice.handled());
        QCOMPARE(texts.first(), text("删除完成"));
    }
    QTEST(QFile::exists(path), "exists");
    const QString trash = QString::fromLocal8Bit(qgetenv("XDG_DATA_HOME")) + text("/Trash/");
    QTEST(QFile::exists(trash + text("files/") + name), "trashed");
    QTEST(QFile::exists(trash + text("info/") + name + text(".trashinfo")), "trashed");
}

void TestDiskAnalyzerDeletion::promisesTheVaultOnlyInForce_data()
{
    QTest::addColumn<QString>("without"); // a key of the status, or what else is missing
    QTest::addColumn<bool>("promised");
    QTest::newRow("in force") << QString() << true;
    for (const char *key : {"running", "enabled", "preloadActive", "soFileExists"})
        QTest::newRow(key) << text(key) << false;
    QTest::newRow("restart pending") << text("needReboot") << false;
    QTest::newRow("no status") << text("status") << false;
    QTest::newRow("type not protected") << text("type") << false;
    QTest::newRow("larger than the vault") << text("room") << false;
}

void TestDiskAnalyzerDeletion::promisesTheVaultOnlyInForce()
{
    QFETCH(QString, without);
    QFETCH(bool, promised);
    QJsonObject status;
    for (const char *key : {"running", "enabled", "preloadActive", "soFileExists"})
        status.insert(text(key), without != text(key));
    status.insert(text("needReboot"), without == text("needReboot"));
    FakeService service;
    QVERIFY(service.start());
    if (without != text("status"))
        service.reply(text("vault.getStatus"), status);
    service.reply(
        text("vault.getConfig"),
        {{text("protectedDirs"), QJsonArray{m_tree->path("docs")}},
         {text("protectedExtensions"), QJsonArray{text(without == text("type") ? "pdf" : "bin")}},
         {text("maxSpaceBytes"), without == text("room") ? 1 : 0}});
    core::ipc::IpcClient client(service.name());
    VaultController vault(&client);
    QSignalSpy config(&vault, &VaultController::configUpdated);
    QSignalSpy known(&vault, &VaultController::statusUpdated);
    QSignalSpy failed(&vault, &VaultController::operationError);
    m_page->setVaultController(&vault);
    client.connectToService();
    QTRY_VERIFY(!config.isEmpty() && known.size() + failed.size() > 0);

    const QString inside = m_tree->file("docs/a.bin");
    const QString outside = m_tree->file("docs2/b.bin");
    m_page->onLargeFilesReady({scanned(inside), scanned(outside)});
    m_page->onDuplicateGroupsReady(groupsOf({{scanned(outside), scanned(inside)}}, 4));
    QTRY_COMPARE(model("LargeFileTable")->rowCount(), 2);
    QTRY_COMPARE(model("DuplicateList")->rowCount(), 3);
    QTest::mouseClick(child<QCheckBox>("LargeFileSelectAll"), Qt::LeftButton);
    const auto question = [this](Tab tab, const char *button) {
        show(tab);
        QStringList texts;
        ModalDriver driver(support::presses("NoticeCancelBtn", &texts));
        press(button);
        return texts.value(1);
    };
    const QString promise = text("其中 1 个文件位于受保护目录下，删除后将进入保险箱");
    QString asked = question(LargeFiles, "LargeFileDeleteButton");
    QCOMPARE(asked.contains(promise), promised);
    QVERIFY(asked.contains(text("永久删除：即将删除 2 个文件，此操作不可撤销。")));
    asked = question(Duplicates, "DuplicateCleanButton");
    QCOMPARE(asked.contains(promise), promised);
    QCOMPARE(asked.contains(text("文件将被永久删除，无法恢复")), !promised);

    // The promise is withdrawn before the deletion if it ceases to hold meanwhile.
    if (promised) {
        QTRY_COMPARE(known.size(), service.count(text("vault.getStatus")));
        service.reply(text("vault.getStatus"), QJsonObject());
        QStringList texts;
        QPointer<QWidget> first; // The second one may lie at its address.
        std::function<void()> cancelSecond;
        ModalDriver driver([&](QWidget *dialog) {
            first = dialog;
            emit vault.statusUpdated(QJsonObject());
            support::presses("NoticeOkBtn", &texts)(dialog);
            cancelSecond();
        });
        cancelSecond = [&] {
            QWidget *dialog = QApplication::activeModalWidget();
            if (!dialog || dialog == first)
                QTimer::singleShot(0, &driver, [&] { cancelSecond(); });
            else
                support::presses("NoticeCancelBtn", &texts)(dialog);
        };
        press("DuplicateCleanButton");
        QCOMPARE(texts.size(), 4);
        QVERIFY(!texts.last().contains(text("保险箱")));
        QVERIFY(QFile::exists(inside));
    }
    service.dropClients();
    QTRY_VERIFY(!vault.isConnected());
    QVERIFY(!question(LargeFiles, "LargeFileDeleteButton").contains(text("保险箱")));
}

void TestDiskAnalyzerDeletion::cleansGroups()
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
    QVERIFY(texts.at(1).startsWith(text("将删除所有重复文件组中未勾选的 2 个文件，确定继续？")));
    QCOMPARE(texts.at(2), text("清理完成"));
    QVERIFY(QFile::exists(m_tree->path("b0")));
    QVERIFY(!QFile::exists(m_tree->path("b1")));
    QVERIFY(QFile::exists(m_tree->path("a1")));
    QCOMPARE(list->model()->rowCount(), 4);
    {
        texts.clear();
        ModalDriver driver(support::presses("NoticeOkBtn", &texts));
        // The button is off and says why; what it starts still has its own answer.
        auto *clean = child<QPushButton>("DuplicateCleanButton");
        QVERIFY(!clean->isEnabled() && !clean->toolTip().isEmpty());
        emit clean->clicked();
        QVERIFY(driver.handled());
    }
    QCOMPARE(texts.at(1), text("没有需要删除的文件"));
}

void TestDiskAnalyzerDeletion::deletesOnlyWhatWasScanned_data()
{
    QTest::addColumn<QString>("change");
    QTest::addColumn<bool>("removed");
    QTest::newRow("nothing changed") << QString() << true;
    QTest::newRow("taken over by the vault") << text("vault") << true;
    QTest::newRow("longer") << text("longer") << false;
    QTest::newRow("newer") << text("newer") << false;
    QTest::newRow("a link to the copy") << text("link") << false;
    QTest::newRow("copy gone") << text("copy gone") << false;
    QTest::newRow("copy changed") << text("copy changed") << false;
    QTest::newRow("no copy kept on purpose") << text("none kept") << true;
}

void TestDiskAnalyzerDeletion::deletesOnlyWhatWasScanned()
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
    DeletionOptions options;
    options.reachesVault = [&](const ScannedFile &) {
        return change == text("vault");
    };
    const DeletionReport report = deleteFiles({group}, options, [] { return false; });
    QTEST(!QFileInfo(drop).isSymLink() && !QFile::exists(drop), "removed");
    QTEST(report.isComplete(), "removed");
    QCOMPARE(noticeOf(report, true).title,
             report.isComplete() ? text("清理完成") : text("删除失败"));
    QCOMPARE(deleteFiles({group}, {}, [] { return true; }).removed.size(), 0);
}

void TestDiskAnalyzerDeletion::staysInsideTheScannedTree_data()
{
    QTest::addColumn<QString>("change");
    QTest::addColumn<QString>("reason");
    QTest::newRow("folder is a link to the kept copy's") << text("link") << text("链接");
    QTest::newRow("folder is bound to the kept copy's") << text("bind") << text("同一个文件");
    QTest::newRow("folder leads out of the tree") << text("outside") << text("链接");
    QTest::newRow("other file of the same size and time") << text("copy") << text("发生了变化");
}

/// Scans for real, exchanges the folder of one copy, and deletes in both tabs: whatever the names
/// lead to by then, no file goes that was not scanned there, and none that is the last one.
void TestDiskAnalyzerDeletion::staysInsideTheScannedTree()
{
    QFETCH(QString, change);
    QFETCH(QString, reason);
    if (change == text("bind") && !m_hasMounts)
        QSKIP("mounts of one's own are not allowed here");
    const QByteArray content(300 * 1024, 'x');
    const auto addCopy = [&](const char *path) {
        QFile file(m_tree->file(path, content));
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(QDateTime::fromMSecsSinceEpoch(1500000000000),
                                 QFileDevice::FileModificationTime));
    };
    for (const char *path : {"top/a/f", "top/b/f", "outside/f"})
        addCopy(path);
    AnalyzerSettingsDialog::Settings settings;
    settings.largeFileThreshold = 100 * 1024;
    settings.dupMinSize = 1024;
    m_page->setScanSettings(settings);
    m_page->scanPath(m_tree->path("top"));
    QTRY_VERIFY(!m_page->isScanning());
    QTRY_COMPARE(model("LargeFileTable")->rowCount(), 2);
    QTRY_COMPARE(model("DuplicateList")->rowCount(), 3);
    const bool keepsA = model("DuplicateList")->index(1, 0).data().toString().contains(text("/a/"));
    const QString kept = m_tree->path(keepsA ? "top/a" : "top/b");
    const QString other = m_tree->path(keepsA ? "top/b" : "top/a");
    const QString outside = m_tree->path("outside");

    QScopedPointer<testsupport::PrivateMount> bound;
    if (change == text("bind")) {
        bound.reset(new testsupport::PrivateMount(kept, other));
        QVERIFY(bound->isMounted());
    } else if (change == text("copy")) {
        addCopy(keepsA ? "top/b/new" : "top/a/new");
        m_tree->move(keepsA ? "top/b/new" : "top/a/new", keepsA ? "top/b/f" : "top/a/f");
    } else {
        m_tree->remove(keepsA ? "top/b" : "top/a");
        m_tree->link(keepsA ? "top/b" : "top/a", change == text("link") ? kept : outside);
    }

    show(Duplicates);
    QStringList texts = confirming([this] { press("DuplicateCleanButton"); });
    QCOMPARE(texts.value(2), text("删除失败"));
    QVERIFY2(texts.at(3).contains(reason), qPrintable(texts.at(3)));
    QVERIFY(texts.at(3).contains(other + text("/f")));
    QVERIFY(QFile::exists(kept + text("/f")));
    QVERIFY(QFile::exists(other + text("/f")));
    QVERIFY(QFile::exists(outside + text("/f")));

    // Only the row whose folder was exchanged. There is no kept copy in this list.
    show(LargeFiles);
    auto *rows = model("LargeFileTable");
    for (int row = 0; row < rows->rowCount(); ++row) {
        const QModelIndex index = rows->index(row, 0);
        if (index.sibling(row, 1).data().toString().startsWith(other))
            QVERIFY(rows->setData(index, Qt::Checked, Qt::CheckStateRole));
    }
    for (const char *button : {"DeletionPermanentBtn", "NoticeOkBtn"}) {
        texts = confirming([this] { press("LargeFileDeleteButton"); }, button);
        QCOMPARE(texts.value(2), text("删除失败"));
        if (change != text("bind"))
            QVERIFY2(texts.at(3).contains(reason), qPrintable(texts.at(3)));
        QVERIFY(QFile::exists(kept + text("/f")));
        QVERIFY(QFile::exists(other + text("/f")));
        QVERIFY(QFile::exists(outside + text("/f")));
    }
}

QTEST_MAIN(TestDiskAnalyzerDeletion)
#include "tst_diskanalyzerdeletion.moc"
