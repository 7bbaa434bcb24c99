#include "core/jsonnumber.h"
#include "support/temptree.h"
#include "vault/vaultlocations.h"
#include "vault/vaultreader.h"
#include "vault/vaultrecord.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTest>

#include <unistd.h>

using namespace vault;

namespace {

const QString kVault = QStringLiteral("p/.morvane_vault/");

QString text(const QJsonValue &record, const char *key)
{
    return record.toObject().value(QLatin1String(key)).toString();
}

QStringList idsIn(const QString &parent)
{
    QStringList ids;
    const QJsonArray files = loadVaultFiles(parent);
    for (const QJsonValue &file : files)
        ids.append(text(file, "id"));
    return ids;
}

void addVault(TempTree &tree, const QString &parent)
{
    tree.dir(parent + QStringLiteral("/.morvane_vault/.meta"));
}

} // namespace

class TestVaultReader : public QObject
{
    Q_OBJECT

private slots:
    void records_data();
    void records();
    void onlyWhatIsWholeAndInside();
    void opensContent_data();
    void opensContent();
    void manyRecords();
    void decodesMountPaths();
    void parsesMounts();
    void findsVaults();
};

void TestVaultReader::records_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>(
        "expected"); // id|fileName|originalPath|fileSize|deletedAt; or nothing
    const auto row = [](const char *name, const char *json, const char *expected) {
        QTest::newRow(name) << QByteArray(json) << QString::fromUtf8(expected);
    };
    row("all keys",
        R"({"id":"7","fileName":"报告.docx","originalPath":"/home/li/a/b","fileSize":12,"deletedAt":99,"x":1})",
        "7|报告.docx|/home/li/a/b|12|99");
    row("id of the file, name of the path", R"({"originalPath":"/home/li/报告.docx"})",
        "abc|报告.docx|/home/li/报告.docx|-|-");
    row("path without a separator", R"({"originalPath":"plain.txt"})",
        "abc|plain.txt|plain.txt|-|-");
    row("wrong types",
        R"({"id":7,"fileName":{},"originalPath":[],"fileSize":"9","deletedAt":null})", "abc|||-|-");
    row("numbers out of range", R"({"id":"a","fileSize":-5,"deletedAt":1e300})",
        "a|||0|9223372036854775807");
    row("an id that is only odd", R"({"id":"a..b 报"})", "a..b 报|||-|-");
    for (const char *id :
         {"..", ".", ".hidden", "../up", "a/b", "/etc/passwd", "a\\u0000b", "a\\n"})
        row(id, ("{\"id\":\"" + QByteArray(id) + "\"}").constData(), "");
    row("an id too long", ("{\"id\":\"" + QByteArray(201, 'a') + "\"}").constData(), "");
    row("empty object", "{}", "");
    row("an array", "[1]", "");
    row("cut off", R"({"id":"7")", "");
    row("nothing", "", "");
    row("nested without end", QByteArray(100000, '[').constData(), "");
}

void TestVaultReader::records()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, expected);
    const QJsonObject record = recordFrom(json, QStringLiteral("abc.json"));
    const auto number = [&record](const char *key) {
        const QJsonValue value = record.value(QLatin1String(key));
        return value.isDouble() ? QString::number(core::toInt64(value)) : QStringLiteral("-");
    };
    const QStringList shown = {text(record, "id"), text(record, "fileName"),
                               text(record, "originalPath"), number("fileSize"),
                               number("deletedAt")};
    QCOMPARE(record.isEmpty() ? QString() : shown.join(QLatin1Char('|')), expected);
    QVERIFY(record.isEmpty() || record.keys().size() <= 5);
}

void TestVaultReader::onlyWhatIsWholeAndInside()
{
    TempTree tree;
    const QString meta = kVault + QStringLiteral(".meta/");
    const auto record = [&](const char *name,
                            const QByteArray &json = "{\"originalPath\":\"/a\"}") {
        return tree.file(meta + QString::fromUtf8(name), json);
    };
    const auto content = [&](const char *id) {
        return tree.file(kVault + QString::fromUtf8(id) + QStringLiteral(".dat"));
    };
    record("good.json");
    content("good");
    record("文件.json");
    content("文件");
    record("other-name.json", R"({"id":"own"})");
    content("own");
    record("gone.json"); // no content
    record("note.txt");
    record(".writing.json");
    content(".writing");
    record("large.json", "{\"originalPath\":\"/" + QByteArray(kMaxRecordBytes, 'a') + "\"}");
    content("large");
    record("up.json", R"({"id":"../outside"})");
    tree.file("p/outside.dat");
    record("linked-content.json");
    tree.link(kVault + QStringLiteral("linked-content.dat"), content("target"));
    tree.link(meta + QStringLiteral("linked.json"), record("target.txt"));
    content("linked");
    tree.link(meta + QStringLiteral("cycle.json"), QStringLiteral("cycle.json"));
    content("cycle");
    tree.dir(meta + QStringLiteral("directory.json"));
    content("directory");
    tree.fifo(meta + QStringLiteral("pipe.json"));
    content("pipe");
    record("piped-content.json");
    tree.fifo(kVault + QStringLiteral("piped-content.dat"));
    record("directory-content.json");
    tree.dir(kVault + QStringLiteral("directory-content.dat"));
    tree.rawFile(meta, "\xff.json");
    QFile::setPermissions(record("unreadable.json"), QFileDevice::Permissions());
    content("unreadable");

    QStringList expected = {QStringLiteral("good"), QStringLiteral("own"), QStringLiteral("文件")};
    if (::geteuid() == 0) // whom no permission stops
        expected.insert(2, QStringLiteral("unreadable"));
    QCOMPARE(idsIn(tree.path("p")), expected);
    QVERIFY(loadVaultFiles(tree.path("p"), [] { return true; }).isEmpty());

    // Neither the vault nor its parts may be links.
    tree.link("parent", tree.path("p"));
    QVERIFY(idsIn(tree.path("parent")).isEmpty());
    tree.dir("q");
    tree.link("q/.morvane_vault", tree.path(kVault));
    QVERIFY(!hasVault(tree.path("q")) && idsIn(tree.path("q")).isEmpty());
    tree.dir("r/.morvane_vault");
    tree.link("r/.morvane_vault/.meta", tree.path(meta));
    QVERIFY(!hasVault(tree.path("r")) && idsIn(tree.path("r")).isEmpty());
    QVERIFY(hasVault(tree.path("p")) && !hasVault(tree.path("none")));
}

void TestVaultReader::opensContent_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<bool>("opens");
    QTest::newRow("regular") << QStringLiteral("good") << true;
    for (const char *id :
         {"link", "pipe", "directory", "none", "../outside", "..", "", "/etc/passwd"})
        QTest::newRow(id) << QString::fromLatin1(id) << false;
}

void TestVaultReader::opensContent()
{
    QFETCH(QString, id);
    QFETCH(bool, opens);
    TempTree tree;
    addVault(tree, QStringLiteral("p"));
    tree.file(kVault + QStringLiteral("good.dat"), "bytes");
    tree.file("p/outside.dat");
    tree.link(kVault + QStringLiteral("link.dat"), tree.path("p/outside.dat"));
    tree.fifo(kVault + QStringLiteral("pipe.dat"));
    tree.dir(kVault + QStringLiteral("directory.dat"));
    QString error;
    const int fd = openVaultContent(tree.path("p"), id, &error);
    QCOMPARE(fd >= 0, opens);
    QCOMPARE(error.isEmpty(), opens);
    char bytes[6] = {};
    QVERIFY(!opens || (::read(fd, bytes, 5) == 5 && QByteArray(bytes) == "bytes"));
    if (fd >= 0)
        ::close(fd);
}

void TestVaultReader::manyRecords()
{
    constexpr int kCount = 20000;
    TempTree tree;
    addVault(tree, QStringLiteral("p"));
    const QString vaultDir = tree.path(kVault);
    const auto write = [](const QString &path, const QByteArray &bytes) {
        QFile file(path);
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
    };
    for (int i = 0; i < kCount; ++i) {
        const QByteArray id = QByteArray::number(i).rightJustified(36, '0');
        const QByteArray json = "{\"id\":\"" + id +
                                "\",\"fileName\":\"report.docx\","
                                "\"originalPath\":\"/home/li/documents/projects/report.docx\","
                                "\"fileSize\":123456,\"deletedAt\":1700000000}";
        QVERIFY(write(vaultDir + QStringLiteral(".meta/%1.json").arg(QLatin1String(id)), json));
        QVERIFY(write(vaultDir + QStringLiteral("%1.dat").arg(QLatin1String(id)), "x"));
    }
    QElapsedTimer timer;
    timer.start();
    const QJsonArray files = loadVaultFiles(tree.path("p"));
    const qint64 ms = timer.elapsed();
    QCOMPARE(files.size(), kCount);
    qInfo() << kCount << "records in" << ms << "ms";
    QVERIFY2(ms < 20000,
             qPrintable(QString::number(ms))); // even with sanitizers; no quadratic cost
}

void TestVaultReader::decodesMountPaths()
{
    const auto decoded = [](const char *field) {
        return decodeMountPath(QString::fromUtf8(field));
    };
    QCOMPARE(decoded("/My\\040Disk\\011x\\012y"), QStringLiteral("/My Disk\tx\ny"));
    QCOMPARE(decoded("/back\\134slash"), QStringLiteral("/back\\slash"));
    // A backslash that is followed by "040".
    QCOMPARE(decoded("/\\134040"), QStringLiteral("/\\040"));
    QCOMPARE(decoded("/\\041数据\\04"), QStringLiteral("/\\041数据\\04"));
}

void TestVaultReader::parsesMounts()
{
    const QByteArray mounts = "/dev/sda1 / ext4 rw 0 0\n"
                              "proc /proc proc rw 0 0\n"
                              "/dev/shm /dev/shm tmpfs rw 0 0\n"
                              "server:/share /net nfs rw 0 0\n"
                              "/dev/mapper/a\\040b /media/My\\040Disk/ ext4 rw 0 0\n"
                              "/dev/sdb1 /data/../data ext4 rw 0 0\n"
                              "/dev/sdc1 /data ext4 rw 0 0\n"
                              "/dev/sdd1\n"
                              "\n"
                              "/dev/sde1 relative ext4 rw 0 0";
    QStringList shown;
    const QVector<MountedPartition> partitions = parseMounts(mounts);
    for (const MountedPartition &partition : partitions)
        shown.append(partition.devicePath + QLatin1Char('|') + partition.mountPoint);
    QCOMPARE(shown.join(QLatin1Char('\n')),
             QStringLiteral("/dev/sda1|/\n/dev/mapper/a b|/media/My Disk\n/dev/sdc1|/data"));
}

void TestVaultReader::findsVaults()
{
    TempTree tree;
    const QString disk = QStringLiteral("My Disk");
    for (const char *parent :
         {"", "/root", "/home/li", "/home/.wang", "/var/home/chen", "/home/a/b"})
        addVault(tree, disk + QString::fromLatin1(parent));
    tree.dir("My Disk/home/empty/.morvane_vault"); // without records
    tree.link("My Disk/home/linked", tree.path("My Disk/home/li"));
    tree.link("bound", tree.path(disk)); // one disk under two names
    // Homes of an image-based system, on the partition and off it.
    tree.dir("second");
    tree.link("second/home", tree.path("My Disk/home"));
    addVault(tree, QStringLiteral("third/var/home/zhao"));
    tree.link("third/home", QStringLiteral("var/home"));

    const auto escaped = [&tree](const char *name) {
        return tree.path(name).replace(QLatin1Char(' '), QLatin1String("\\040")).toUtf8();
    };
    const QString mounts =
        tree.file("mounts", "/dev/sda1 " + escaped("My Disk") + " ext4 rw 0 0\n/dev/sda1 " +
                                escaped("My Disk") + " ext4 rw 0 0\n/dev/sda1 " + escaped("bound") +
                                " ext4 rw 0 0\n/dev/sdb1 " + escaped("second") +
                                " ext4 rw 0 0\n/dev/sdc1 " + escaped("third") + " ext4 rw 0 0\n");
    QStringList shown;
    const QVector<VaultLocation> vaults = findVaultLocations(mounts);
    for (const VaultLocation &it : vaults) {
        shown.append(it.devicePath + QLatin1Char('|') +
                     it.vaultParentDir.mid(tree.path().size() + 1) + QLatin1Char('|') +
                     it.userName);
        QVERIFY(it.vaultParentDir.startsWith(it.partMountPoint));
        QCOMPARE(VaultLocation::fromJson(it.toJson()).toJson(), it.toJson());
    }
    QCOMPARE(shown.join(QLatin1Char('\n')), QStringLiteral("/dev/sda1|My Disk|\n"
                                                           "/dev/sda1|My Disk/root|root\n"
                                                           "/dev/sda1|My Disk/home/.wang|.wang\n"
                                                           "/dev/sda1|My Disk/home/li|li\n"
                                                           "/dev/sdc1|third/home/zhao|zhao"));
    QVERIFY(findVaultLocations(tree.path("none")).isEmpty());
}

QTEST_GUILESS_MAIN(TestVaultReader)
#include "tst_vaultreader.moc"
