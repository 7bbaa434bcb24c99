#include "search/indexbuilder.h"
#include "search/searchindexdb.h"
#include "support/temptree.h"

#include <QFileInfo>
#include <QSignalSpy>
#include <QTest>

class TestCutTexts : public QObject
{
    Q_OBJECT

private slots:
    void followsTheFiles();
    void countsWhatABuildCut();
};

void TestCutTexts::followsTheFiles()
{
    TempTree tree;
    tree.file("a.txt", "a");
    tree.file("b.txt", "b");
    const QString a = tree.path("a.txt");
    const QString b = tree.path("b.txt");
    SearchIndexDB db(tree.path("index.db"));
    QVERIFY(db.upsertFile(QFileInfo(a), QStringLiteral("a")));
    QVERIFY(db.upsertFile(QFileInfo(b), QStringLiteral("b")));
    QVERIFY(db.noteCutTexts({a, b, QStringLiteral("/not/there")}, true));
    QVERIFY(db.noteCutTexts({a}, true));
    QCOMPARE(db.cutTextCount(), qint64(2));
    QVERIFY(db.noteCutTexts({b}, false));
    QCOMPARE(db.cutTextCount(), qint64(1));
    QVERIFY(db.removeFile(a));
    QCOMPARE(db.cutTextCount(), qint64(0));
}

void TestCutTexts::countsWhatABuildCut()
{
    TempTree tree;
    tree.file("r/long.txt", QByteArray(20000, 'x'));
    tree.file("r/short.txt", "short");
    IndexBuilder builder(tree.path("index.db"));
    QSignalSpy finished(&builder, &IndexBuilder::finished);
    const auto cutAt = [&](int maxBytes) {
        builder.startBuild({tree.path("r")}, {}, {}, {QStringLiteral("txt")}, maxBytes);
        return SearchIndexDB(tree.path("index.db")).cutTextCount();
    };
    QCOMPARE(cutAt(16384), qint64(1));
    QCOMPARE(cutAt(256 * 1024), qint64(0));
    QCOMPARE(finished.size(), 2);
    QVERIFY(finished.at(1).at(0).toBool());
}

QTEST_GUILESS_MAIN(TestCutTexts)
#include "tst_cuttexts.moc"
