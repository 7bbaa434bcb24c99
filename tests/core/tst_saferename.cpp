#include "core/saferename.h"
#include "support/temptree.h"

#include <QFile>
#include <QTest>

#include <cerrno>

using Rename = int (*)(const QByteArray &, const QByteArray &);
Q_DECLARE_METATYPE(Rename)

class TestSafeRename : public QObject
{
    Q_OBJECT

private slots:
    void neverReplaces_data();
    void neverReplaces();
};

void TestSafeRename::neverReplaces_data()
{
    QTest::addColumn<Rename>("rename");
    QTest::newRow("no replace") << Rename(core::renameNoReplace);
    QTest::newRow("to a free name") << Rename(core::renameToFree);
    QTest::newRow("by reservation") << Rename(core::renameByReservation);
}

void TestSafeRename::neverReplaces()
{
    QFETCH(Rename, rename);
    TempTree tree;
    const auto renamed = [&](const char *from, const char *to) {
        return rename(QFile::encodeName(tree.path(from)), QFile::encodeName(tree.path(to)));
    };
    const auto textOf = [&](const char *name) {
        QFile file(tree.path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };
    tree.file("new", "new");
    tree.file("old", "old");
    tree.link("dangling", QStringLiteral("nowhere"));
    QCOMPARE(renamed("new", "old"), EEXIST);
    QCOMPARE(renamed("new", "dangling"), EEXIST);
    QCOMPARE(textOf("old"), QByteArray("old"));
    // A name that was taken in vain is free again.
    QCOMPARE(renamed("none", "free"), ENOENT);
    QCOMPARE(renamed("new", "free"), 0);
    QCOMPARE(textOf("free"), QByteArray("new"));
    QVERIFY(!QFile::exists(tree.path("new")));
}

QTEST_GUILESS_MAIN(TestSafeRename)
#include "tst_saferename.moc"
