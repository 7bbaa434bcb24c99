#include "support/temptree.h"
#include "vaultd/fileindex.h"
#include "vaultd/vaultstore.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonObject>
#include <QTest>

using namespace services::vaultd;

/// The list of what a vault holds.
class TestVaultdIndex : public QObject
{
    Q_OBJECT

private slots:
    void pagesAndSearches();
    void staysQuickWithMany();
    void isMadeAnew_data();
    void isMadeAnew();
    void ordersForExpiry();

private:
    static IndexedFile fileOf(int number);
    static QStringList namesOn(const FileIndex &list, int limit, int offset,
                               const QString &filter = QString());
};

IndexedFile TestVaultdIndex::fileOf(int number)
{
    IndexedFile indexed;
    indexed.file.id = QStringLiteral("id-%1").arg(number, 8, 10, QLatin1Char('0'));
    indexed.file.setPath("/home/u/文件夹 " + QByteArray::number(number % 7) + "/Name " +
                         QByteArray::number(number) + ".TXT");
    indexed.file.fileSize = 10;
    // About four are counted together.
    indexed.file.deletedAt = indexed.file.keptSince = 1000 + 60 * number;
    return indexed;
}

QStringList TestVaultdIndex::namesOn(const FileIndex &list, int limit, int offset,
                                     const QString &filter)
{
    QStringList names;
    const QJsonArray files = list.page(limit, offset, filter).files;
    for (const QJsonValue &file : files)
        names.append(file.toObject().value(QLatin1String("fileName")).toString());
    return names;
}

void TestVaultdIndex::pagesAndSearches()
{
    TempTree tree;
    VaultIndex index(tree.path());
    QString error;
    QVERIFY2(index.open(&error), qPrintable(error));
    QVector<IndexedFile> files;
    for (int i = 0; i < 50; ++i)
        files.append(fileOf(i));
    QVERIFY2(index.change({}, files, &error), qPrintable(error));
    QVERIFY(index.change({}, files, &error)); // The same ones again are no more.
    FileIndex list;
    QVERIFY(list.open(tree.path()));
    QCOMPARE(list.count(), 50);
    QCOMPARE(list.usedBytes(), qint64(500));
    QStringList all;
    for (int offset = 0; offset < 60; offset += 7)
        all += namesOn(list, 7, offset);
    QStringList expected;
    for (int i = 49; i >= 0; --i)
        expected.append(QStringLiteral("Name %1.TXT").arg(i));
    QCOMPARE(all, expected);
    QCOMPARE(namesOn(list, 2, 1, QStringLiteral("name 4")),
             (QStringList{QStringLiteral("Name 48.TXT"), QStringLiteral("Name 47.TXT")}));
    QCOMPARE(list.page(2, 0, QStringLiteral("name 4")).totalCount, 11);
    QCOMPARE(list.page(0, 0, QString::fromUtf8("文件夹 6")).totalCount, 7);
    QCOMPARE(list.page(5, 0, QStringLiteral("%_")).totalCount, 0);
    QVERIFY(index.change({fileOf(49).file.id, QStringLiteral("none")}, {}, &error));
    list.apply(VaultChanges());
    QCOMPARE(list.count(), 49);
    QCOMPARE(namesOn(list, 1, 0), QStringList(QStringLiteral("Name 48.TXT")));
    // Gaps in the times, whole ones and in part; the page is longer than what lies between.
    QStringList removed;
    for (int i = 10; i < 45; ++i)
        if (i % 8 != 0)
            removed.append(fileOf(i).file.id);
    QVERIFY(index.change(removed, {}, &error));
    list.apply(VaultChanges());
    all.clear();
    for (int offset = 0; offset < list.count(); offset += 3)
        all += namesOn(list, 3, offset);
    expected.clear();
    for (int i = 48; i >= 0; --i)
        if (i < 10 || i >= 45 || i % 8 == 0)
            expected.append(QStringLiteral("Name %1.TXT").arg(i));
    QCOMPARE(all, expected);
}

/// A page of a long list costs about as much as one of a short list, and a start does not read all.
void TestVaultdIndex::staysQuickWithMany()
{
    constexpr int kMany = 200 * 1000;
    const auto costOf = [](int count) {
        TempTree tree;
        VaultIndex index(tree.path());
        QString error;
        if (!index.open(&error))
            return -1.0;
        for (int from = 0; from < count; from += 5000) {
            QVector<IndexedFile> files;
            for (int i = from; i < qMin(count, from + 5000); ++i)
                files.append(fileOf(i));
            if (!index.change({}, files, &error))
                return -1.0;
        }
        qint64 best = std::numeric_limits<qint64>::max();
        for (int i = 0; i < 9; ++i) {
            QElapsedTimer timer;
            timer.start();
            FileIndex list;
            if (!list.open(tree.path()) || list.page(100, 0, QString()).files.size() != 100 ||
                list.page(100, count / 2, QString()).files.size() != 100)
                return -1.0;
            best = qMin(best, timer.nsecsElapsed());
        }
        return double(best);
    };
    const double few = costOf(1000);
    const double many = costOf(kMany);
    QVERIFY(few > 0 && many > 0);
    QVERIFY2(many < 20 * few, qPrintable(QStringLiteral("%1 times").arg(many / few)));
}

void TestVaultdIndex::isMadeAnew_data()
{
    QTest::addColumn<QByteArray>("damage"); // What the file holds instead; "-": it is gone.
    QTest::newRow("gone") << QByteArray("-");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("noise") << QByteArray(100000, 'x');
}

void TestVaultdIndex::isMadeAnew()
{
    QFETCH(QByteArray, damage);
    TempTree tree;
    tree.file("home/.morvane_vault/x.dat", "12345");
    tree.file("home/.morvane_vault/.meta/x.json", R"({"originalPath":"/home/a"})");
    std::atomic<bool> stop{false};
    QString error;
    for (int i = 0; i < 2; ++i) {
        const VaultLayout layout(tree.path("home"));
        VaultStore store(layout, tree.dir("state"), stop);
        QVERIFY2(store.open(&error), qPrintable(error));
        QCOMPARE(store.ids(), QStringList(QStringLiteral("x")));
        QCOMPARE(store.files().first().fileSize, qint64(5));
        if (damage == "-")
            QVERIFY(QFile::remove(tree.path("state/index.db")));
    }
    if (damage != "-") {
        for (const char *name : {"state/index.db-wal", "state/index.db-shm"})
            QFile::remove(tree.path(name));
        tree.file("state/index.db", damage);
        const VaultLayout layout(tree.path("home"));
        VaultStore store(layout, tree.dir("state"), stop);
        QVERIFY2(store.open(&error), qPrintable(error));
        QCOMPARE(store.ids(), QStringList(QStringLiteral("x")));
    }
}

void TestVaultdIndex::ordersForExpiry()
{
    TempTree tree;
    VaultIndex index(tree.path());
    QString error;
    QVERIFY2(index.open(&error), qPrintable(error));
    QVector<IndexedFile> files;
    for (int i : {3, 1, 2, 0, 4})
        files.append(fileOf(i));
    QVERIFY(index.change({}, files, &error));
    QVERIFY(index.setReplaced(fileOf(3).file.id));
    QStringList order;
    index.visitForExpiry(1000, [&order](const VaultFile &file) {
        order.append(file.fileName.mid(5, 1));
        return order.size() < 4;
    });
    QCOMPARE(order.join(QString()), QStringLiteral("0312"));
}

QTEST_GUILESS_MAIN(TestVaultdIndex)
#include "tst_vaultd_index.moc"
