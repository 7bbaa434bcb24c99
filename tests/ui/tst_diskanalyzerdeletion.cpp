#include "core/ipc/ipcclient.h"
#include "diskanalyzerfixture.h"
#include "ui/common/celldelegate.h"
#include "ui/pages/diskanalyzerpage/filedeletion.h"
#include "ui/pages/diskanalyzerpage/largefilemodel.h"
#include "vault/vaultcontroller.h"

#include <QJsonArray>
#include <QTableView>

using namespace diskanalyzertest;

class TestDiskAnalyzerDeletion : public QObject, private DiskAnalyzerBench
{
    Q_OBJECT

private slots:
    void initTestCase() { setUpTheme(); }
    void init() { setUp(); }
    void cleanup() { tearDown(); }
    void deletesTickedFiles();
    void warnsOfProtectedFiles();
    void cleansGroups();
    void deletesOnlyWhatWasScanned_data();
    void deletesOnlyWhatWasScanned();
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

void TestDiskAnalyzerDeletion::warnsOfProtectedFiles()
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

void TestDiskAnalyzerDeletion::deletesOnlyWhatWasScanned_data()
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
    const DeletionReport report = deleteFiles({group}, [] { return false; });
    QTEST(!QFileInfo(drop).isSymLink() && !QFile::exists(drop), "removed");
    QTEST(report.isComplete(), "removed");
    QCOMPARE(noticeOf(report, true).title,
             report.isComplete() ? text("清理完成") : text("删除失败"));
    QCOMPARE(deleteFiles({group}, [] { return true; }).removed.size(), 0);
}

QTEST_MAIN(TestDiskAnalyzerDeletion)
#include "tst_diskanalyzerdeletion.moc"
