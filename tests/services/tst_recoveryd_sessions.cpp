#include "recoveryd/session/sessionstore.h"
#include "support/diskimages.h"
#include "support/recoveryharness.h"

#include <QDateTime>
#include <QTest>

using namespace diskimages;
using testsupport::RecoveryClient;
using testsupport::RecoveryHarness;

namespace {

constexpr int kManyFiles = 16 * 1024;
const QString kDevice = QStringLiteral("/dev/image0");
const QString kBig = QStringLiteral("/dev/image1");
const QString kLong = QStringLiteral("/dev/image2");

/// By contents alone, so that what is found does not depend on what metadata scanners can do.
QJsonObject scanParams(const QString &device, const char *mode)
{
    return {{QStringLiteral("devicePath"), device},
            {QStringLiteral("fileSystem"), QStringLiteral("EXT4")},
            {QStringLiteral("scanMode"), QLatin1String(mode)},
            {QStringLiteral("deepResultSource"), QStringLiteral("deepOnly")}};
}

QJsonObject byId(const QString &sessionId)
{
    return {{QStringLiteral("sessionId"), sessionId}};
}

QStringList typesOf(const QJsonArray &files)
{
    QStringList types;
    for (const QJsonValue &file : files)
        types.append(file.toObject().value(QLatin1String("type")).toString());
    types.sort();
    return types;
}

} // namespace

class TestRecoverydSessions : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void scansByModeAndScope_data();
    void scansByModeAndScope();
    void tellsEachFileInFull();
    void sendsBatches_data();
    void sendsBatches();
    void pausesResumesAndStops();
    void goesOnPastUnreadableParts();
    void keepsSessions();
    void marksInterruptedSessions();
    void goesOnWithAnInterruptedSession();
    void givesFilesInPages();
    void readsListsOfOldVersions();
    void refusesBadRequests_data();
    void refusesBadRequests();

private:
    QJsonArray filesOf(const QString &sessionId, const QJsonObject &page = QJsonObject());

    QTemporaryDir m_dir;
    QString m_image; ///< ext4; three deleted files, one that lives, one that begins in mid-block.
    QString m_big;   ///< No file system; pictures in every second sector.
    QString m_long;  ///< A hole that takes a second or more to read, and a picture at both ends.
    std::unique_ptr<RecoveryHarness> m_harness;
};

void TestRecoverydSessions::initTestCase()
{
    const QString source = m_dir.filePath(QStringLiteral("source"));
    QVERIFY(QDir().mkpath(source));
    QVERIFY(write(source + QLatin1String("/a.png"), png(70000)));
    QVERIFY(write(source + QLatin1String("/b.pdf"), pdf(20000)));
    QVERIFY(write(source + QLatin1String("/c.docx"), container(QStringLiteral("docx"), 9000)));
    QVERIFY(write(source + QLatin1String("/d"), QByteArray(512, '\0') + gif(3000)));
    QVERIFY(write(source + QLatin1String("/lives.jpg"), jpeg(30000)));
    m_image = m_dir.filePath(QStringLiteral("image"));
    QString error;
    QVERIFY2(
        makeExt(m_image, source, 16384, {QStringLiteral("-t"), QStringLiteral("ext4")}, &error),
        qPrintable(error));
    for (const char *name : {"a.png", "b.pdf", "c.docx", "d"})
        QVERIFY2(debugfs(m_image, QStringLiteral("rm /%1").arg(QLatin1String(name)), &error),
                 qPrintable(error));

    const QByteArray picture = png(400);
    const QByteArray sector = picture + QByteArray(1024 - picture.size(), '\0');
    QByteArray bytes;
    for (int i = 0; i < kManyFiles; ++i)
        bytes += sector;
    m_big = m_dir.filePath(QStringLiteral("big"));
    QVERIFY(write(m_big, bytes));
    m_long = m_dir.filePath(QStringLiteral("long"));
    QVERIFY(write(m_long, picture));
    QVERIFY(patch(m_long, qint64(2) * 1024 * 1024 * 1024, picture));
}

void TestRecoverydSessions::init()
{
    m_harness = std::make_unique<RecoveryHarness>();
    QVERIFY(m_harness->start({m_image, m_big, m_long}));
}

QJsonArray TestRecoverydSessions::filesOf(const QString &sessionId, const QJsonObject &page)
{
    QJsonObject params = page;
    params.insert(QStringLiteral("sessionId"), sessionId);
    return m_harness->client()
        .request(QStringLiteral("session.getFiles"), params)
        .data.value(QLatin1String("files"))
        .toArray();
}

void TestRecoverydSessions::scansByModeAndScope_data()
{
    QTest::addColumn<QString>("settings"); // key=word, as sent beside the others
    QTest::addColumn<QString>("present");
    QTest::addColumn<QString>("absent");
    const auto row = [](const char *settings, const char *present, const char *absent) {
        QTest::newRow(settings) << settings << present << absent;
    };
    row("fileScope=all", "DOCX PDF PNG", "JPG");
    row("deepScanScope=fullDisk", "DOCX JPG PDF PNG", "");
    row("fileScope=documentsOnly", "DOCX PDF", "GIF JPG PNG");
    row("fileScope=mediaOnly", "PNG", "DOCX JPG PDF");
    row("fileScope=codeAndLogs", "", "DOCX GIF JPG PDF PNG");
    row("deepResultSource=deepOnly", "DOCX GIF PDF PNG", "JPG");
}

void TestRecoverydSessions::scansByModeAndScope()
{
    QFETCH(QString, settings);
    QFETCH(QString, present);
    QFETCH(QString, absent);
    const QStringList setting = settings.split(QLatin1Char('='));
    QJsonObject params{{QStringLiteral("devicePath"), kDevice},
                       {QStringLiteral("scanMode"), QStringLiteral("deep")}};
    // Beside the others, or in the nested object alone.
    for (const bool isNested : {false, true}) {
        QJsonObject sent = params;
        const QJsonObject nested{{setting.at(0), setting.at(1)}};
        if (isNested)
            sent.insert(QStringLiteral("advancedSettings"), nested);
        else
            sent.insert(setting.at(0), setting.at(1));
        const QString id = m_harness->client().scan(sent);
        QVERIFY(!id.isEmpty());
        const QStringList found = typesOf(m_harness->client().filesFound(id));
        for (const QString &type : present.split(QLatin1Char(' ')))
            QVERIFY2(type.isEmpty() || found.count(type) == 1, qPrintable(type));
        for (const QString &type : absent.split(QLatin1Char(' ')))
            QVERIFY2(!found.contains(type), qPrintable(type));
    }
}

void TestRecoverydSessions::tellsEachFileInFull()
{
    RecoveryClient &client = m_harness->client();
    const QString id = client.scan(scanParams(kDevice, "deep"));
    const QJsonArray files = client.filesFound(id);
    QCOMPARE(files.size(), 4);
    QCOMPARE(client.request(QStringLiteral("session.getFiles"), byId(id))
                 .data.value(QLatin1String("files"))
                 .toArray(),
             files);
    for (const QJsonValue &value : files) {
        const QJsonObject file = value.toObject();
        QStringList keys = file.keys();
        QCOMPARE(keys.join(QLatin1Char(' ')),
                 QStringLiteral("blockStart boundaryVerified contiguity deletionTime fileId "
                                "integrityLabel integrityReason name path probScore probability "
                                "probabilityKey size sizeBytes source type"));
        QCOMPARE(file.value(QLatin1String("source")).toString(), QStringLiteral("carving"));
        QVERIFY(file.value(QLatin1String("boundaryVerified")).toBool());
        QVERIFY(file.value(QLatin1String("path"))
                    .toString()
                    .endsWith(QLatin1Char('/') + file.value(QLatin1String("name")).toString()));
    }
    const RecoveryClient::Event &last = client.events().last();
    QCOMPARE(last.name, QStringLiteral("scan.completed"));
    const QJsonObject summary = last.data.value(QLatin1String("summary")).toObject();
    QCOMPARE(summary.value(QLatin1String("filesFound")).toInt(), 4);
    QVERIFY(summary.value(QLatin1String("scannedBytes")).toDouble() > 1e6);
}

void TestRecoverydSessions::sendsBatches_data()
{
    QTest::addColumn<bool>("isQuick");
    QTest::newRow("deep") << false;
    // There are no structures to read: contents are all that is left, and the client is told.
    QTest::newRow("quick") << true;
}

void TestRecoverydSessions::sendsBatches()
{
    QFETCH(bool, isQuick);
    RecoveryClient &client = m_harness->client();
    const QString id = client.scan(scanParams(kBig, isQuick ? "quick" : "deep"));
    QVERIFY(!id.isEmpty());
    QCOMPARE(client.filesFound(id).size(), kManyFiles);
    const QJsonObject summary =
        client.events().last().data.value(QLatin1String("summary")).toObject();
    QCOMPARE(summary.value(QLatin1String("notes")).toArray().isEmpty(), !isQuick);
    double lastPercent = 0;
    int found = 0;
    int progresses = 0;
    for (const RecoveryClient::Event &event : client.events()) {
        if (event.name == QLatin1String("scan.fileFound")) {
            const int batch = event.data.value(QLatin1String("files")).toArray().size();
            QVERIFY(batch > 0 && batch <= 500);
            found += batch;
        } else if (event.name == QLatin1String("scan.progress")) {
            const double percent = event.data.value(QLatin1String("progress")).toDouble();
            QVERIFY(percent >= lastPercent && percent <= 100);
            // What has been counted has been sent.
            QCOMPARE(event.data.value(QLatin1String("filesFound")).toInt(), found);
            QVERIFY(!event.data.value(QLatin1String("phaseText")).toString().isEmpty());
            lastPercent = percent;
            ++progresses;
        }
    }
    QCOMPARE(lastPercent, 100.0);
    QVERIFY(progresses < 500);
}

void TestRecoverydSessions::pausesResumesAndStops()
{
    RecoveryClient &client = m_harness->client();
    const QString id = client.startScan(scanParams(kLong, "deep"));
    QVERIFY(client.request(QStringLiteral("scan.pause"), byId(id)).success);
    QCOMPARE(client.waitFor(id, {QStringLiteral("scan.paused")}).name,
             QStringLiteral("scan.paused"));
    const int atPause = client.events().size();
    QTest::qWait(400); // that nothing comes can only be waited for
    QCOMPARE(client.events().size(), atPause);
    QVERIFY(!client.request(QStringLiteral("session.delete"), byId(id)).success);
    const auto status = [&client, &id] {
        return client.request(QStringLiteral("session.getDetail"), byId(id))
            .data.value(QLatin1String("status"))
            .toString();
    };
    QCOMPARE(status(), QStringLiteral("paused"));

    QVERIFY(client.request(QStringLiteral("scan.resume"), byId(id)).success);
    QVERIFY(status() != QLatin1String("paused"));
    QCOMPARE(client.waitFor(id, {QStringLiteral("scan.completed")}).name,
             QStringLiteral("scan.completed"));
    QCOMPARE(client.filesFound(id).size(), 2);
    for (const char *method : {"scan.pause", "scan.resume", "scan.stop"})
        QVERIFY(!client.request(QLatin1String(method), byId(id)).success);

    // A stop out of a pause, as the page does it too.
    const QString stopped = client.startScan(scanParams(kLong, "deep"));
    QVERIFY(client.request(QStringLiteral("scan.pause"), byId(stopped)).success);
    client.waitFor(stopped, {QStringLiteral("scan.paused")});
    QVERIFY(client.request(QStringLiteral("scan.stop"), byId(stopped)).success);
    const RecoveryClient::Event end =
        client.waitFor(stopped, {QStringLiteral("scan.error"), QStringLiteral("scan.completed")});
    QCOMPARE(end.name, QStringLiteral("scan.error"));
    QCOMPARE(end.data.value(QLatin1String("error")).toObject().value(QLatin1String("code")).toInt(),
             1002);
    const QJsonObject detail =
        client.request(QStringLiteral("session.getDetail"), byId(stopped)).data;
    QCOMPARE(detail.value(QLatin1String("status")).toString(), QStringLiteral("stopped"));
    QCOMPARE(detail.value(QLatin1String("filesFound")).toInt(), client.filesFound(stopped).size());
}

void TestRecoverydSessions::goesOnPastUnreadableParts()
{
    const qint64 mebi = 1024 * 1024;
    const QString hurt = m_harness->path(QStringLiteral("hurt"));
    QVERIFY(write(hurt, png(400)));
    QVERIFY(patch(hurt, mebi / 2, gif(3000)));
    QVERIFY(QFile::resize(hurt, 40 * mebi));
    QVERIFY(m_harness->start({hurt}));
    QVERIFY(QFile::resize(hurt, mebi)); // The rest can no longer be read.
    const QString session = m_harness->client().startScan(scanParams(kDevice, "deep"));
    const auto event = m_harness->client().waitFor(
        session, {QStringLiteral("scan.completed"), QStringLiteral("scan.error")});
    QCOMPARE(event.name, QStringLiteral("scan.completed"));
    QCOMPARE(typesOf(m_harness->client().filesFound(session)),
             (QStringList{QStringLiteral("GIF"), QStringLiteral("PNG")}));
}

void TestRecoverydSessions::keepsSessions()
{
    QStringList ids;
    for (int i = 0; i < 3; ++i) {
        ids.prepend(m_harness->client().scan(scanParams(kDevice, i == 1 ? "deep" : "quick")));
        // The order is by the millisecond.
        const qint64 millisecond = QDateTime::currentMSecsSinceEpoch();
        QTRY_VERIFY(QDateTime::currentMSecsSinceEpoch() > millisecond);
    }
    const auto list = [this](const QJsonObject &params) {
        QStringList found;
        const QJsonArray rows = m_harness->client()
                                    .request(QStringLiteral("session.list"), params)
                                    .data.value(QLatin1String("sessions"))
                                    .toArray();
        for (const QJsonValue &row : rows) {
            if (row.toObject().size() != 5)
                return QStringList{QStringLiteral("wrong keys")};
            found.append(row.toObject().value(QLatin1String("sessionId")).toString());
        }
        return found;
    };
    const QJsonArray before = filesOf(ids.at(1));
    QCOMPARE(before.size(), 4);
    QVERIFY(m_harness->restart());
    QCOMPARE(list(QJsonObject()), ids);
    QCOMPARE(list({{QStringLiteral("limit"), 1}, {QStringLiteral("offset"), 1}}), ids.mid(1, 1));
    QCOMPARE(list({{QStringLiteral("offset"), 9}}), QStringList());
    QCOMPARE(filesOf(ids.at(1)), before);
    const QJsonObject detail =
        m_harness->client().request(QStringLiteral("session.getDetail"), byId(ids.at(1))).data;
    QCOMPARE(detail.value(QLatin1String("fileSystem")).toString(), QStringLiteral("EXT4"));
    QCOMPARE(detail.value(QLatin1String("scanMode")).toString(), QStringLiteral("deep"));
    QCOMPARE(detail.value(QLatin1String("scanSummary"))
                 .toObject()
                 .value(QLatin1String("filesFound"))
                 .toInt(),
             4);

    QVERIFY(m_harness->client().request(QStringLiteral("session.delete"), byId(ids.at(1))).success);
    QVERIFY(
        !m_harness->client().request(QStringLiteral("session.delete"), byId(ids.at(1))).success);
    QVERIFY(m_harness->restart());
    QCOMPARE(list(QJsonObject()), (QStringList{ids.at(0), ids.at(2)}));
}

void TestRecoverydSessions::marksInterruptedSessions()
{
    // As a killed service leaves it: running, its results cut off in a record; beside what is no
    // session at all.
    const QString id = m_harness->client().scan(scanParams(kDevice, "deep"));
    const QJsonArray before = filesOf(id);
    QCOMPARE(before.size(), 4);
    const QString folder = m_harness->path(QStringLiteral("state/sessions/"));
    const QString session = folder + id + QLatin1String("/session.json");
    const QString results = folder + id + QLatin1String("/results.log");
    const QByteArray stored = readAll(session);
    const QByteArray log = readAll(results);
    QVERIFY(QDir().mkpath(folder + QLatin1String("torn")));
    QVERIFY(write(folder + QLatin1String("torn/session.json"), stored.left(40)));
    int lastCount = -1;
    for (int length = 0; length <= log.size(); length += length + 5 < log.size() ? 5 : 1) {
        QVERIFY(write(session, QByteArray(stored).replace("\"completed\"", "\"running\"")));
        QVERIFY(write(results, log.left(length)));
        if (length == 0)
            QVERIFY(QFile::remove(results));
        // A byte of what was not written whole may be anything.
        if (length % 3 == 2)
            QVERIFY(patch(results, length - 1, "\xA5"));
        services::recoveryd::SessionStore store;
        QString error;
        QVERIFY(store.open(m_harness->path(QStringLiteral("state")), &error));
        QCOMPARE(store.session(id).status, QStringLiteral("interrupted"));
        const int count = store.session(id).filesFound;
        QVERIFY(count >= qMax(0, lastCount - 1) && count <= before.size());
        lastCount = count;
    }
    QCOMPARE(lastCount, before.size());
    QVERIFY(write(session, QByteArray(stored).replace("\"completed\"", "\"running\"")));
    QVERIFY(m_harness->restart());
    const QJsonObject detail =
        m_harness->client().request(QStringLiteral("session.getDetail"), byId(id)).data;
    QCOMPARE(detail.value(QLatin1String("status")).toString(), QStringLiteral("interrupted"));
    QVERIFY(detail.value(QLatin1String("canResume")).toBool());
    QCOMPARE(filesOf(id), before);
}

void TestRecoverydSessions::goesOnWithAnInterruptedSession()
{
    RecoveryClient &client = m_harness->client();
    const QString whole = client.scan(scanParams(kLong, "deep"));
    QCOMPARE(filesOf(whole).size(), 2);
    const QJsonObject resume{{QStringLiteral("resumeSessionId"), whole}};
    QVERIFY(!client.request(QStringLiteral("scan.start"), resume).success); // nothing is left to do

    const QString id = client.startScan(scanParams(kLong, "deep"));
    QVERIFY(client.request(QStringLiteral("scan.pause"), byId(id)).success);
    client.waitFor(id, {QStringLiteral("scan.paused")});
    QVERIFY(client.request(QStringLiteral("scan.stop"), byId(id)).success);
    client.waitFor(id, {QStringLiteral("scan.error")});
    const QJsonArray before = filesOf(id);
    QVERIFY(m_harness->restart());
    const QString again = m_harness->client().scan({{QStringLiteral("resumeSessionId"), id}});
    QCOMPARE(again, id);
    QCOMPARE(filesOf(id).size(), 2);
    for (int i = 0; i < before.size(); ++i)
        QCOMPARE(filesOf(id).at(i), before.at(i));

    // The image has another content by now.
    const QString stopped = m_harness->client().startScan(scanParams(kBig, "deep"));
    QVERIFY(m_harness->client().request(QStringLiteral("scan.stop"), byId(stopped)).success);
    m_harness->client().waitFor(stopped,
                                {QStringLiteral("scan.error"), QStringLiteral("scan.completed")});
    const QByteArray head = readAll(m_big).left(16);
    QVERIFY(patch(m_big, 0, "another content"));
    const RecoveryClient::Answer answer = m_harness->client().request(
        QStringLiteral("scan.start"), {{QStringLiteral("resumeSessionId"), stopped}});
    QVERIFY(patch(m_big, 0, head));
    QVERIFY(!answer.success);
    QVERIFY(answer.errorMessage.contains(QStringLiteral("已改变")));
}

void TestRecoverydSessions::givesFilesInPages()
{
    RecoveryClient &client = m_harness->client();
    const QString id = client.scan(scanParams(kBig, "deep"));
    const QJsonArray all = filesOf(id);
    QCOMPARE(all.size(), kManyFiles);
    QJsonArray joined;
    int pages = 0;
    while (joined.size() < all.size()) {
        const QJsonObject data = client
                                     .request(QStringLiteral("session.getFiles"),
                                              {{QStringLiteral("sessionId"), id},
                                               {QStringLiteral("limit"), 50000},
                                               {QStringLiteral("offset"), joined.size()}})
                                     .data;
        QCOMPARE(data.value(QLatin1String("total")).toInt(), all.size());
        const QJsonArray page = data.value(QLatin1String("files")).toArray();
        QVERIFY(!page.isEmpty());
        QVERIFY(QJsonDocument(page).toJson(QJsonDocument::Compact).size() < 2 * 1000 * 1000);
        for (const QJsonValue &file : page)
            joined.append(file);
        ++pages;
    }
    QCOMPARE(joined, all);
    QVERIFY(pages > 4 && pages < 20);
    const QJsonObject some{{QStringLiteral("limit"), 3}, {QStringLiteral("offset"), 7}};
    QCOMPARE(filesOf(id, some).size(), 3);
    QCOMPARE(filesOf(id, some).first(), all.at(7));
    QCOMPARE(filesOf(id, {{QStringLiteral("offset"), 70000}}).size(), 0);
}

void TestRecoverydSessions::readsListsOfOldVersions()
{
    const QString id = m_harness->client().scan(scanParams(kDevice, "deep"));
    const QString folder = m_harness->path(QStringLiteral("state/sessions/%1/").arg(id));
    QVERIFY(QFile::remove(folder + QStringLiteral("results.log")));
    // Number 2 was left out, as a file whose ranges did not make up its size.
    QVERIFY(write(folder + QStringLiteral("files.json"),
                  R"({"files":[
        {"fileId":"c000003","name":"f000000040.pdf","type":"PDF","sizeBytes":700,
         "probabilityKey":"good","ranges":[20480,512,40960,188]},
        {"fileId":"c000002","sizeBytes":700,"ranges":[0,1]},
        {"fileId":"c000001","name":"f000000008.docx","type":"DOCX","sizeBytes":9,
         "probabilityKey":"excellent","ranges":[4096,9]}]})"));
    for (int round = 0; round < 2; ++round) {
        const QJsonArray files = filesOf(id);
        QCOMPARE(files.size(), 2);
        const QJsonObject first = files.first().toObject();
        QCOMPARE(first.value(QLatin1String("fileId")).toString(), QStringLiteral("f000001"));
        QCOMPARE(first.value(QLatin1String("name")).toString(), QStringLiteral("f000000008.docx"));
        QCOMPARE(first.value(QLatin1String("integrityLabel")).toString(),
                 QStringLiteral("容器已验证"));
        QCOMPARE(files.at(1).toObject().value(QLatin1String("sizeBytes")).toInt(), 700);
        QVERIFY(!QFile::exists(folder + QStringLiteral("files.json")));
        QVERIFY(m_harness->restart());
    }
    // Ids of that time still name the same files.
    const QString recovery =
        m_harness->client()
            .request(QStringLiteral("recovery.start"),
                     {{QStringLiteral("sessionId"), id},
                      {QStringLiteral("fileIds"), QJsonArray{QStringLiteral("c000003")}},
                      {QStringLiteral("outputDir"), m_harness->path(QStringLiteral("out"))},
                      {QStringLiteral("conflictPolicy"), QStringLiteral("rename")}})
            .data.value(QLatin1String("recoveryId"))
            .toString();
    const QJsonObject end =
        m_harness->client().waitFor(recovery, {QStringLiteral("recovery.completed")}).data;
    QCOMPARE(
        end.value(QLatin1String("summary")).toObject().value(QLatin1String("succeeded")).toInt(),
        1);
}

void TestRecoverydSessions::refusesBadRequests_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QByteArray>("params");
    const auto row = [](const char *method, const char *params) {
        QTest::newRow(params) << QString::fromLatin1(method) << QByteArray(params);
    };
    row("disk.prepareForScan", R"({"devicePath":7})");
    row("disk.prepareForScan", R"({"devicePath":"/dev/sda1"})");
    row("scan.start", "{}");
    row("scan.start", R"({"devicePath":["/dev/image0"]})");
    row("scan.start", R"({"devicePath":"/dev/image9","scanMode":"deep"})");
    row("scan.start", R"({"devicePath":"/dev/image0","scanMode":"thorough"})");
    row("scan.start", R"({"devicePath":"/dev/image0","scanMode":1})");
    row("scan.start", R"({"devicePath":"/dev/image0","fileScope":"everything"})");
    row("scan.start", R"({"resumeSessionId":"none"})");
    row("scan.start", R"({"resumeSessionId":7})");
    row("scan.start", R"({"devicePath":"/dev/image0","advancedSettings":{"fileScope":null}})");
    row("scan.stop", R"({"sessionId":{}})");
    row("session.list", R"({"limit":"50"})");
    row("session.list", R"({"limit":-1})");
    row("session.list", R"({"offset":0.5})");
    row("session.getDetail", R"({"sessionId":"../../etc"})");
    row("session.getFiles", R"({"sessionId":true})");
    row("recovery.getDetail", R"({"recoveryId":"x","limit":-1})");
    row("session.delete", R"({"sessionId":"."})");
    row("session.delete", R"({"sessionId":""})");
    row("recovery.start", R"({"sessionId":"x","fileIds":"y","outputDir":"/tmp"})");
    row("recovery.start", R"({"sessionId":"x","fileIds":[],"outputDir":"/tmp"})");
    row("recovery.getDetail", R"({"recoveryId":"*"})");
    row("recovery.stop", "{\"recoveryId\":5}");
    row("recovery.restoreVaultFiles", R"({"vaultPartition":"/dev/image0","fileIds":["1"]})");
    row("debug.registerFile", R"({"filePath":5})");
    row("debug.registerFile", R"({"filePath":"relative"})");
    row("debug.registerFile", R"({"filePath":"/dev/image0:/none"})");
    row("debug.registerFile", R"({"filePath":"/dev/image1:/none"})");
    row("debug.registerFile", R"({"filePath":"/proc/self/status"})");
    row("debug.verify", R"({"snapshotId":"../sessions"})");
    row("debug.deleteSnapshot", R"({"snapshotId":"none"})");
    row("debug.getVerification", R"({"verificationId":[]})");
    row("debug.recoverFile", R"({"snapshotId":"none","outputDir":"relative"})");
}

void TestRecoverydSessions::refusesBadRequests()
{
    QFETCH(QString, method);
    QFETCH(QByteArray, params);
    const RecoveryClient::Answer answer =
        m_harness->client().request(method, QJsonDocument::fromJson(params).object());
    QVERIFY(!answer.success);
    QVERIFY(answer.errorCode > 1000 && answer.errorCode != 1002);
    QVERIFY(!answer.errorMessage.isEmpty());
    QVERIFY(m_harness->client().request(QStringLiteral("disk.enumerate")).success);
    QCOMPARE(m_harness->client()
                 .request(QStringLiteral("session.list"))
                 .data.value(QLatin1String("sessions"))
                 .toArray()
                 .size(),
             0);
}

QTEST_GUILESS_MAIN(TestRecoverydSessions)
#include "tst_recoveryd_sessions.moc"
