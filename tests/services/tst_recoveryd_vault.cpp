#include "support/diskimages.h"
#include "support/recoveryharness.h"
#include "support/temptree.h"

#include <QTest>

#include <random>
#include <sys/stat.h>

using namespace diskimages;
using testsupport::RecoveryClient;
using testsupport::RecoveryHarness;

namespace {

const QString kParent = QStringLiteral("/dev/image0:/home/li");

QString text(const QJsonValue &object, const char *key)
{
    return object.toObject().value(QLatin1String(key)).toString();
}

int number(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toInt(-1);
}

QByteArray record(const QString &id, const QString &name, qint64 size)
{
    return QStringLiteral(R"({"id":"%1","fileName":"%2","originalPath":"/home/li/文档/%2",)"
                          R"("fileSize":%3,"deletedAt":1700000000})")
        .arg(id, name)
        .arg(size)
        .toUtf8();
}

/// A vault in a tree that becomes an image, or is mounted.
class VaultMaker
{
public:
    VaultMaker(TempTree &tree, const QString &parent)
        : m_tree(tree)
        , m_dir(parent + QStringLiteral("/.morvane_vault/"))
    {
        tree.dir(m_dir + QStringLiteral(".meta"));
    }

    void protect(const QString &id, const QString &name, const QByteArray &content)
    {
        addRecord(id, record(id, name, content.size()));
        m_tree.file(contentPath(id), content);
    }
    void addRecord(const QString &fileId, const QByteArray &json)
    {
        m_tree.file(m_dir + QStringLiteral(".meta/%1.json").arg(fileId), json);
    }
    QString contentPath(const QString &id) const { return m_dir + id + QStringLiteral(".dat"); }

private:
    TempTree &m_tree;
    QString m_dir;
};

} // namespace

class TestRecoverydVault : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void listsWhatIsThere();
    void restoresTheSameBytes_data();
    void restoresTheSameBytes();
    void restoresSparseAndFragmented();
    void restoresFromMountedTarget();
    void keepsWhatIsThere();
    void trustsNoRecord();
    void refuses_data();
    void refuses();
    void survivesDamage();

private:
    [[nodiscard]] bool makeImage(const QStringList &options);
    QJsonArray locations();
    QJsonObject params(const QStringList &ids) const;
    /// Restores to the end; the last event's data.
    QJsonObject restore(const QStringList &ids);
    QStringList restoredFiles() const;

    std::unique_ptr<TempTree> m_tree;
    std::unique_ptr<RecoveryHarness> m_harness;
    QString m_image;
    QString m_out;
    QString m_parent;
    QString m_policy;
    QHash<QString, QString> m_statuses; ///< Of the last restore, by file id.
};

void TestRecoverydVault::init()
{
    m_tree = std::make_unique<TempTree>();
    m_harness = std::make_unique<RecoveryHarness>();
    m_image = m_harness->path(QStringLiteral("image"));
    m_out = m_harness->path(QStringLiteral("out/深"));
    m_parent = kParent;
    m_policy = QStringLiteral("rename");
}

bool TestRecoverydVault::makeImage(const QStringList &options)
{
    QString error;
    const bool made = makeExt(m_image, m_tree->path("disk"), 32768, options, &error);
    if (!made)
        qWarning() << error;
    return made && m_harness->start({m_image});
}

QJsonArray TestRecoverydVault::locations()
{
    return m_harness->client()
        .request(QStringLiteral("recovery.listVaultLocations"))
        .data.value(QLatin1String("locations"))
        .toArray();
}

QJsonObject TestRecoverydVault::params(const QStringList &ids) const
{
    return {{QStringLiteral("vaultPartition"), m_parent},
            {QStringLiteral("fileIds"), QJsonArray::fromStringList(ids)},
            {QStringLiteral("targetDir"), m_out},
            {QStringLiteral("conflictPolicy"), m_policy}};
}

QJsonObject TestRecoverydVault::restore(const QStringList &ids)
{
    RecoveryClient &client = m_harness->client();
    const RecoveryClient::Answer answer =
        client.request(QStringLiteral("recovery.restoreVaultFiles"), params(ids));
    if (!answer.success)
        qWarning() << answer.errorMessage;
    const QString task = text(answer.data, "taskId");
    const QJsonObject end =
        client.waitFor(task, {QStringLiteral("recovery.vaultRestoreCompleted")}).data;
    m_statuses.clear();
    for (const RecoveryClient::Event &event : client.events()) {
        if (event.name == QLatin1String("recovery.vaultFileRestored") &&
            text(event.data, "taskId") == task)
            m_statuses.insert(text(event.data, "fileId"), text(event.data, "status"));
    }
    return end;
}

QStringList TestRecoverydVault::restoredFiles() const
{
    return QDir(m_out).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

void TestRecoverydVault::listsWhatIsThere()
{
    VaultMaker(*m_tree, QStringLiteral("disk"))
        .protect(QStringLiteral("0"), QStringLiteral("t"), "t");
    VaultMaker(*m_tree, QStringLiteral("disk/root"))
        .protect(QStringLiteral("r"), QStringLiteral("r"), "r");
    VaultMaker li(*m_tree, QStringLiteral("disk/home/li"));
    li.protect(QStringLiteral("1"), QStringLiteral("报告.docx"), "one");
    li.addRecord(QStringLiteral("gone"), record(QStringLiteral("gone"), QStringLiteral("g"), 1));
    li.addRecord(QStringLiteral("broken"), "{");
    VaultMaker(*m_tree, QStringLiteral("disk/home/空"));
    VaultMaker(*m_tree, QStringLiteral("disk/var/lib")); // where nobody looks
    m_tree->dir("disk/home/none");
    m_tree->link("disk/home/linked", QStringLiteral("li"));
    QVERIFY(makeImage({QStringLiteral("-t"), QStringLiteral("ext4")}));

    QStringList shown;
    const QJsonArray found = locations();
    for (const QJsonValue &location : found) {
        QStringList ids;
        const QJsonArray files = location.toObject().value(QLatin1String("files")).toArray();
        for (const QJsonValue &file : files)
            ids.append(text(file, "id"));
        QCOMPARE(text(location, "devicePath"), QStringLiteral("/dev/image0"));
        shown.append(text(location, "vaultParentDir") + QLatin1Char('|') +
                     text(location, "userName") + QLatin1Char('|') + ids.join(QLatin1Char(',')));
    }
    QCOMPARE(shown.join(QLatin1Char('\n')), QStringLiteral("/dev/image0:/||0\n"
                                                           "/dev/image0:/root|root|r\n"
                                                           "/dev/image0:/home/li|li|1\n"
                                                           "/dev/image0:/home/空|空|"));
    const QJsonObject file =
        found.at(2).toObject().value(QLatin1String("files")).toArray().at(0).toObject();
    QCOMPARE(text(file, "fileName"), QStringLiteral("报告.docx"));
    QCOMPARE(text(file, "originalPath"), QStringLiteral("/home/li/文档/报告.docx"));
    QCOMPARE(number(file, "fileSize"), 3);
    QCOMPARE(number(file, "deletedAt"), 1700000000);
}

void TestRecoverydVault::restoresTheSameBytes_data()
{
    QTest::addColumn<QStringList>("options");
    const auto row = [](const char *options) {
        QTest::newRow(options) << QString::fromLatin1(options).split(QLatin1Char(' '));
    };
    row("-t ext4 -b 4096");
    row("-t ext4 -b 1024");
    row("-t ext3 -b 1024"); // block maps with indirect blocks
    row("-t ext2 -b 4096");
}

void TestRecoverydVault::restoresTheSameBytes()
{
    QFETCH(QStringList, options);
    const QVector<QByteArray> contents = {noise(3, 1), noise(0, 2), noise(12 * 1024, 3),
                                          noise(3 * 1024 * 1024 + 17, 4)};
    VaultMaker vault(*m_tree, QStringLiteral("disk/home/li"));
    QStringList ids;
    for (int i = 0; i < contents.size(); ++i) {
        ids.append(QStringLiteral("id-%1").arg(i));
        vault.protect(ids.last(), QStringLiteral("文件%1.bin").arg(i), contents.at(i));
    }
    QVERIFY(makeImage(options));
    const QByteArray before = readAll(m_image);

    const QJsonObject end = restore(ids + QStringList{ids.first(), QStringLiteral("none")});
    QCOMPARE(number(end, "total"), 5);
    QCOMPARE(number(end, "succeeded"), 4);
    QCOMPARE(number(end, "failed"), 1);
    QCOMPARE(number(end, "skipped"), 0);
    QCOMPARE(number(end, "totalBytes"), 3 + 12 * 1024 + 3 * 1024 * 1024 + 17);
    QCOMPARE(m_statuses.value(QStringLiteral("none")), QStringLiteral("failed"));
    for (int i = 0; i < contents.size(); ++i) {
        const QString path = m_out + QStringLiteral("/文件%1.bin").arg(i);
        QVERIFY2(QFile::exists(path) && readAll(path) == contents.at(i), qPrintable(path));
        QCOMPARE(m_statuses.value(ids.at(i)), QStringLiteral("succeeded"));
    }
    QCOMPARE(restoredFiles().size(), 4); // no temporary file
    QVERIFY(readAll(m_image) == before);
}

void TestRecoverydVault::restoresSparseAndFragmented()
{
    // Written into the gaps that every second deleted file leaves, with holes at the start, in the
    // middle and at the end.
    for (int i = 0; i < 200; ++i)
        m_tree->file(QStringLiteral("disk/%1").arg(i), noise(20 * 1024, 7));
    QByteArray content = noise(2 * 1024 * 1024, 11);
    for (const int hole : {0, 1024 * 1024, 2 * 1024 * 1024 - 128 * 1024})
        content.replace(hole, 128 * 1024, QByteArray(128 * 1024, '\0'));
    VaultMaker vault(*m_tree, QStringLiteral("disk/home/li"));
    vault.addRecord(QStringLiteral("s"),
                    record(QStringLiteral("s"), QStringLiteral("s.img"), content.size()));
    const QString host = m_tree->file("new", content);
    QString error;
    QVERIFY2(makeExt(m_image, m_tree->path("disk"), 8192,
                     {QStringLiteral("-b"), QStringLiteral("1024"), QStringLiteral("-t"),
                      QStringLiteral("ext4"), QStringLiteral("-O"), QStringLiteral("^has_journal")},
                     &error),
             qPrintable(error));
    for (int i = 0; i < 200; i += 2)
        QVERIFY(debugfs(m_image, QStringLiteral("rm /%1").arg(i), &error));
    QVERIFY2(debugfs(m_image, QStringLiteral("write %1 /home/li/.morvane_vault/s.dat").arg(host),
                     &error),
             qPrintable(error));
    QVERIFY(m_harness->start({m_image}));

    QCOMPARE(number(restore({QStringLiteral("s")}), "succeeded"), 1);
    const QString path = m_out + QStringLiteral("/s.img");
    QVERIFY(readAll(path) == content);
    struct stat info = {};
    QCOMPARE(::stat(QFile::encodeName(path).constData(), &info), 0);
    QVERIFY2(info.st_blocks * 512 < content.size() - 256 * 1024,
             qPrintable(QString::number(info.st_blocks)));
}

void TestRecoverydVault::restoresFromMountedTarget()
{
    VaultMaker vault(*m_tree, QStringLiteral("target/home/li"));
    QByteArray content = noise(300 * 1024, 5);
    vault.protect(QStringLiteral("1"), QStringLiteral("a.txt"), content);
    m_tree->link(vault.contentPath(QStringLiteral("link")), m_tree->file("outside"));
    vault.addRecord(QStringLiteral("link"), record(QStringLiteral("link"), QStringLiteral("l"), 4));
    m_tree->dir("disk"); // an image without a vault
    m_harness->mountedDir = m_tree->path("target");
    QVERIFY(makeImage({}));
    const QString method = QStringLiteral("recovery.listVaultLocations");
    QJsonObject data = m_harness->client().request(method).data;
    QCOMPARE(data.value(QLatin1String("targetMounted")).toBool(true), false);
    QVERIFY(data.value(QLatin1String("locations")).toArray().isEmpty());

    m_tree->file("target/etc/os-release");
    data = m_harness->client().request(method).data;
    QCOMPARE(data.value(QLatin1String("targetMounted")).toBool(), true);
    QCOMPARE(data.value(QLatin1String("locations")).toArray().size(), 1);
    const QJsonValue location = data.value(QLatin1String("locations")).toArray().first();
    m_parent = m_tree->path("target/home/li");
    QCOMPARE(text(location, "vaultParentDir"), m_parent);
    QCOMPARE(text(location, "partMountPoint"), m_tree->path("target"));
    QCOMPARE(number(restore({QStringLiteral("1"), QStringLiteral("link")}), "succeeded"), 1);
    QCOMPARE(restoredFiles(), QStringList{QStringLiteral("a.txt")});
    QVERIFY(readAll(m_out + QStringLiteral("/a.txt")) == content);
}

void TestRecoverydVault::keepsWhatIsThere()
{
    VaultMaker vault(*m_tree, QStringLiteral("disk/home/li"));
    vault.protect(QStringLiteral("1"), QStringLiteral("a.txt"), "first");
    vault.protect(QStringLiteral("2"), QStringLiteral("a.txt"), "second");
    QVERIFY(QDir().mkpath(m_out));
    QVERIFY(write(m_out + QStringLiteral("/a.txt"), "own"));
    QVERIFY(makeImage({}));
    m_policy = QStringLiteral("skip");
    QCOMPARE(number(restore({QStringLiteral("1"), QStringLiteral("2")}), "skipped"), 2);
    QCOMPARE(restoredFiles(), QStringList{QStringLiteral("a.txt")});
    m_policy = QStringLiteral("rename");
    QCOMPARE(number(restore({QStringLiteral("1"), QStringLiteral("2")}), "succeeded"), 2);
    QCOMPARE(readAll(m_out + QStringLiteral("/a.txt")), QByteArray("own"));
    QCOMPARE(readAll(m_out + QStringLiteral("/a (1).txt")), QByteArray("first"));
    QCOMPARE(readAll(m_out + QStringLiteral("/a (2).txt")), QByteArray("second"));
}

void TestRecoverydVault::trustsNoRecord()
{
    VaultMaker vault(*m_tree, QStringLiteral("disk/home/li"));
    m_tree->file("disk/home/li/outside.dat", "secret");
    vault.addRecord(QStringLiteral("up"), R"({"id":"../outside"})");
    vault.protect(QStringLiteral("short"), QStringLiteral("s"), "1234");
    vault.addRecord(QStringLiteral("short"),
                    record(QStringLiteral("short"), QStringLiteral("s"), 5));
    vault.protect(QStringLiteral("path"), QStringLiteral("../../etc/passwd"), "p");
    vault.protect(QStringLiteral("hidden"), QStringLiteral(".bashrc"), "h");
    vault.addRecord(QStringLiteral("dir"), record(QStringLiteral("dir"), QStringLiteral("d"), 0));
    m_tree->dir(vault.contentPath(QStringLiteral("dir")));
    vault.addRecord(QStringLiteral("link"), record(QStringLiteral("link"), QStringLiteral("l"), 6));
    m_tree->link(vault.contentPath(QStringLiteral("link")), QStringLiteral("../outside.dat"));
    vault.protect(QStringLiteral("huge"), QStringLiteral("h"), "h");
    vault.addRecord(QStringLiteral("huge"), R"({"fileName":"huge"})"); // tells no size
    QVERIFY(makeImage({}));
    // Longer than its whole file system, with hardly a block to it.
    QString error;
    QVERIFY2(debugfs(m_image,
                     QStringLiteral("set_inode_field /home/li/.morvane_vault/huge.dat size "
                                    "0x3fffffffffff"),
                     &error),
             qPrintable(error));
    const QJsonObject end =
        restore({QStringLiteral("../outside"), QStringLiteral("short"), QStringLiteral("path"),
                 QStringLiteral("hidden"), QStringLiteral("dir"), QStringLiteral("link"),
                 QStringLiteral("huge")});
    QCOMPARE(number(end, "succeeded"), 2);
    QCOMPARE(number(end, "failed"), 5);
    QCOMPARE(restoredFiles().join(QLatin1Char(' ')), QStringLiteral("_._.._etc_passwd _bashrc"));
}

void TestRecoverydVault::refuses_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QJsonValue>("value");
    const auto row = [](const char *name, const char *key, const QJsonValue &value) {
        QTest::newRow(name) << QString::fromLatin1(key) << value;
    };
    row("another vault", "vaultPartition", QStringLiteral("/dev/image0:/home/wang"));
    row("a way around", "vaultPartition", QStringLiteral("/dev/image0:/home/li/../li"));
    row("no vault", "vaultPartition", 7);
    row("no ids", "fileIds", QJsonArray());
    row("wrong ids", "fileIds", QJsonArray{1});
    row("relative target", "targetDir", QStringLiteral("out"));
    row("unknown policy", "conflictPolicy", QStringLiteral("overwrite"));
    row("target below a file", "targetDir", QStringLiteral("/proc/version/x"));
    row("no room", "", QJsonValue());
}

void TestRecoverydVault::refuses()
{
    QFETCH(QString, key);
    QFETCH(QJsonValue, value);
    VaultMaker(*m_tree, QStringLiteral("disk/home/li"))
        .protect(QStringLiteral("1"), QStringLiteral("a"), noise(5000, 1));
    QVERIFY(makeImage({}));
    m_harness->freeBytes = key.isEmpty() ? 1024 * 1024 + 4999 : -1;
    QJsonObject bad = params({QStringLiteral("1")});
    if (!key.isEmpty())
        bad.insert(key, value);
    const QString method = QStringLiteral("recovery.restoreVaultFiles");
    const RecoveryClient::Answer answer = m_harness->client().request(method, bad);
    QVERIFY(!answer.success && answer.errorCode > 1000 && !answer.errorMessage.isEmpty());
    QVERIFY(!QFile::exists(m_out));
    // Nothing of it stands in the way of the next.
    m_harness->freeBytes = 1024 * 1024 + 8192;
    QCOMPARE(number(restore({QStringLiteral("1")}), "succeeded"), 1);
}

void TestRecoverydVault::survivesDamage()
{
    VaultMaker vault(*m_tree, QStringLiteral("disk/home/li"));
    for (int i = 0; i < 60; ++i)
        vault.protect(QString::number(i), QStringLiteral("f%1").arg(i), noise(2000, quint32(i)));
    QVERIFY(makeImage({QStringLiteral("-b"), QStringLiteral("1024")}));
    const QByteArray whole = readAll(m_image);
    QCOMPARE(locations().first().toObject().value(QLatin1String("files")).toArray().size(), 60);
    QStringList ids;
    for (int i = 0; i < 60; ++i)
        ids.append(QString::number(i));
    // Tables, directories and records overwritten here and there: whatever is found, the service
    // answers, tells of every file, and leaves no other file behind.
    int succeeded = 0;
    for (quint32 seed = 1; seed <= 8; ++seed) {
        std::mt19937 random(seed);
        QVERIFY(write(m_image, whole));
        for (int i = 0; i < 100; ++i) {
            const qint64 at = 2048 + qint64(random() % (3 * 1024 * 1024));
            QVERIFY(patch(m_image, at, noise(512, random())));
        }
        QVERIFY(m_harness->restart());
        const QJsonArray found = locations();
        if (found.isEmpty())
            continue;
        m_parent = text(found.first(), "vaultParentDir");
        m_out = m_harness->path(QStringLiteral("out%1").arg(seed));
        const QJsonObject end = restore(ids);
        QCOMPARE(number(end, "total"), 60);
        QCOMPARE(m_statuses.size(), 60);
        QCOMPARE(restoredFiles().size(), number(end, "succeeded"));
        succeeded += number(end, "succeeded");
    }
    QVERIFY2(succeeded > 0 && succeeded < 8 * 60, qPrintable(QString::number(succeeded)));
    QVERIFY(m_harness->client().request(QStringLiteral("disk.enumerate")).success);
}

QTEST_GUILESS_MAIN(TestRecoverydVault)
#include "tst_recoveryd_vault.moc"
