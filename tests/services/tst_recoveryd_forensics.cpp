#include "support/diskimages.h"
#include "support/recoveryharness.h"

#include <QCryptographicHash>
#include <QTest>

using namespace diskimages;
using testsupport::RecoveryClient;
using testsupport::RecoveryHarness;

namespace {

QJsonValue at(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key));
}

QString counts(const QJsonObject &verification)
{
    return QStringLiteral("%1/%2/%3 %4 %5%")
        .arg(at(verification, "unchangedBlocks").toInt())
        .arg(at(verification, "changedBlocks").toInt())
        .arg(at(verification, "zeroedBlocks").toInt())
        .arg(at(verification, "inodeChanged").toBool() ? QStringLiteral("changed")
                                                       : QStringLiteral("same"))
        .arg(at(verification, "integrityPercent").toDouble());
}

} // namespace

class TestRecoverydForensics : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void followsAFileBeyondItsDeletion();
    void namesImagesInThreeWays();
    void readsHolesAndSmallFiles();
    void tellsWhatCannotBeRead();
    void refusesDamagedSnapshots();
    void readsFilesOfThisMachineOrSaysWhyNot();

private:
    RecoveryClient::Answer ask(const char *method, const QJsonObject &params = QJsonObject())
    {
        return m_harness->client().request(QLatin1String(method), params);
    }
    QJsonObject registerFile(const QString &path)
    {
        return ask("debug.registerFile", {{QStringLiteral("filePath"), path}}).data;
    }
    QJsonObject verify(const QString &note = QString())
    {
        return ask("debug.verify",
                   {{QStringLiteral("snapshotId"), m_id}, {QStringLiteral("note"), note}})
            .data;
    }
    QJsonObject recover()
    {
        return ask("debug.recoverFile",
                   {{QStringLiteral("snapshotId"), m_id},
                    {QStringLiteral("outputDir"), m_harness->path(QStringLiteral("out/x"))}})
            .data;
    }

    std::unique_ptr<RecoveryHarness> m_harness;
    QString m_image;
    QByteArray m_content;
    QString m_id;
};

void TestRecoverydForensics::init()
{
    m_harness = std::make_unique<RecoveryHarness>();
    const QString source = m_harness->path(QStringLiteral("source"));
    m_content = noise(20 * 1024 + 100, 5); // 21 blocks of 1 KiB
    QVERIFY(QDir().mkpath(source + QStringLiteral("/照片")));
    QVERIFY(write(source + QStringLiteral("/照片/a.raw"), m_content));
    QVERIFY(write(source + QStringLiteral("/empty"), QByteArray()));
    m_image = m_harness->path(QStringLiteral("disk.img"));
    QString error;
    QVERIFY2(makeExt(m_image, source, 8192,
                     {QStringLiteral("-t"), QStringLiteral("ext4"), QStringLiteral("-b"),
                      QStringLiteral("1024")},
                     &error),
             qPrintable(error));
    QVERIFY(m_harness->start({m_image}));
}

void TestRecoverydForensics::followsAFileBeyondItsDeletion()
{
    const QJsonObject snapshot = registerFile(QStringLiteral("/dev/image0:/照片/a.raw"));
    m_id = at(snapshot, "snapshotId").toString();
    QCOMPARE(at(snapshot, "totalBlocks").toInt(), 21);
    QCOMPARE(at(snapshot, "fileSize").toInt(), m_content.size());
    QCOMPARE(at(snapshot, "fileSha256").toString().toLatin1(),
             QCryptographicHash::hash(m_content, QCryptographicHash::Sha256).toHex());
    QCOMPARE(counts(verify(QStringLiteral("before"))), QStringLiteral("21/0/0 same 100%"));

    QString error;
    QVERIFY(debugfs(m_image, QStringLiteral("rm /照片/a.raw"), &error));
    QCOMPARE(counts(verify()), QStringLiteral("21/0/0 changed 100%"));
    const QJsonObject first = recover();
    QVERIFY(readAll(at(first, "outputPath").toString()) == m_content);
    QCOMPARE(at(first, "bytesWritten").toInt(), m_content.size());
    QCOMPARE(at(first, "failedBlocks").toInt(-1), 0);

    // Two blocks are written over, three are wiped.
    const QJsonObject extent = at(snapshot, "extents").toArray().first().toObject();
    const qint64 start = qint64(at(extent, "physicalOffset").toDouble());
    QVERIFY(patch(m_image, start + 1024 * 4 + 1000, QByteArray(100, '!')));
    QVERIFY(patch(m_image, start + 1024 * 10, QByteArray(3 * 1024, '\0')));
    const QJsonObject last = verify(QStringLiteral("later"));
    QVERIFY(counts(last).startsWith(QStringLiteral("16/2/3 changed 76.")));
    QString map;
    for (const QJsonValue &value : at(last, "blockDetails").toArray()) {
        const QJsonObject block = value.toObject();
        QCOMPARE(at(block, "blockIndex").toInt(), map.size());
        QCOMPARE(qint64(at(block, "physicalBlock").toDouble()), start / 1024 + map.size());
        QCOMPARE(at(block, "originalSha256").toString() == at(block, "currentSha256").toString(),
                 at(block, "status").toString() == QLatin1String("unchanged"));
        map.append(at(block, "status").toString().at(0));
    }
    QCOMPARE(map, QStringLiteral("uuuuccuuuuzzzuuuuuuuu"));
    const QJsonObject second = recover();
    QVERIFY(at(second, "outputPath").toString().endsWith(QStringLiteral("/a (1).raw")));

    // All of it outlives the service.
    QVERIFY(m_harness->restart());
    QCOMPARE(at(ask("debug.listSnapshots").data, "snapshots").toArray().size(), 1);
    const QJsonObject detail =
        ask("debug.getSnapshot", {{QStringLiteral("snapshotId"), m_id}}).data;
    const QJsonArray verifications = at(detail, "verifications").toArray();
    QCOMPARE(verifications.size(), 3);
    QCOMPARE(at(detail, "fileSha256"), at(snapshot, "fileSha256"));
    const QJsonObject again =
        ask("debug.getVerification",
            {{QStringLiteral("verificationId"), at(last, "verificationId").toString()}})
            .data;
    QCOMPARE(again, last);
    QVERIFY(ask("debug.deleteSnapshot", {{QStringLiteral("snapshotId"), m_id}}).success);
    QVERIFY(!ask("debug.getSnapshot", {{QStringLiteral("snapshotId"), m_id}}).success);
}

void TestRecoverydForensics::namesImagesInThreeWays()
{
    for (const QString &name : {QStringLiteral("/dev/image0"), m_image, QStringLiteral("disk.img")})
        QVERIFY(registerFile(name + QStringLiteral(":/照片/a.raw"))
                    .contains(QStringLiteral("snapshotId")));
    QVERIFY(registerFile(QStringLiteral("/dev/image0:/照片")).isEmpty());
}

void TestRecoverydForensics::readsHolesAndSmallFiles()
{
    QByteArray content = noise(9000, 8);
    content.replace(2048, 4096, QByteArray(4096, '\0'));
    const QString host = m_harness->path(QStringLiteral("holes"));
    QString error;
    QVERIFY(write(host, content));
    QVERIFY(debugfs(m_image, QStringLiteral("write %1 /holes").arg(host), &error));
    const QJsonObject snapshot = registerFile(QStringLiteral("disk.img:/holes"));
    QCOMPARE(at(snapshot, "fileSha256").toString().toLatin1(),
             QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex());
    m_id = at(snapshot, "snapshotId").toString();
    QVERIFY(readAll(at(recover(), "outputPath").toString()) == content);

    m_id = at(registerFile(QStringLiteral("disk.img:/empty")), "snapshotId").toString();
    QCOMPARE(counts(verify()), QStringLiteral("0/0/0 same 100%"));
    const QFileInfo empty(at(recover(), "outputPath").toString());
    QVERIFY(empty.exists() && empty.size() == 0);
}

void TestRecoverydForensics::tellsWhatCannotBeRead()
{
    const QJsonObject snapshot = registerFile(QStringLiteral("disk.img:/照片/a.raw"));
    m_id = at(snapshot, "snapshotId").toString();
    const QJsonObject extent = at(snapshot, "extents").toArray().first().toObject();
    QVERIFY(QFile::resize(m_image, qint64(at(extent, "physicalOffset").toDouble()) + 1024 * 15));
    QCOMPARE(counts(verify()).section(QLatin1Char(' '), 0, 0), QStringLiteral("15/6/0"));
    const QJsonObject recovered = recover();
    QCOMPARE(at(recovered, "failedBlocks").toInt(), 6);
    QByteArray expected = m_content.left(15 * 1024);
    expected.append(QByteArray(m_content.size() - expected.size(), '\0'));
    QVERIFY(readAll(at(recovered, "outputPath").toString()) == expected);
}

void TestRecoverydForensics::refusesDamagedSnapshots()
{
    m_id = at(registerFile(QStringLiteral("disk.img:/照片/a.raw")), "snapshotId").toString();
    const QString stored =
        m_harness->path(QStringLiteral("state/snapshots/%1/snapshot.json").arg(m_id));
    const QByteArray good = readAll(stored);
    for (const QByteArray &bad :
         {good.left(100), QByteArray(good).replace("\"blockSize\":1024", "\"blockSize\":0"),
          QByteArray(good).replace("\"blockSize\":1024", "\"blockSize\":512"),
          QByteArray(good).replace("\"physicalOffset\":", "\"physicalOffset\":-"),
          QByteArray(good).replace("\"blockSha256\":[", "\"blockSha256\":[\"\","),
          QByteArray(good).replace("\"length\":", "\"length\":1e300,\"l\":")}) {
        QVERIFY(bad != good);
        QVERIFY(write(stored, bad));
        QVERIFY(verify().isEmpty());
        QCOMPARE(at(ask("debug.listSnapshots").data, "snapshots").toArray().size(), 0);
    }
    QVERIFY(write(stored, good));
    QCOMPARE(counts(verify()), QStringLiteral("21/0/0 same 100%"));
}

void TestRecoverydForensics::readsFilesOfThisMachineOrSaysWhyNot()
{
    // Whether the block device below may be read depends on the machine and the user.
    const QString path = m_harness->path(QStringLiteral("here"));
    QVERIFY(write(path, m_content));
    const RecoveryClient::Answer answer =
        ask("debug.registerFile", {{QStringLiteral("filePath"), path}});
    if (answer.success)
        QCOMPARE(at(answer.data, "fileSha256").toString().toLatin1(),
                 QCryptographicHash::hash(m_content, QCryptographicHash::Sha256).toHex());
    else
        QVERIFY(!answer.errorMessage.isEmpty());
    for (const char *other : {"/none", "/dev/null", "/tmp"})
        QVERIFY(registerFile(QLatin1String(other)).isEmpty());
}

QTEST_GUILESS_MAIN(TestRecoverydForensics)
#include "tst_recoveryd_forensics.moc"
