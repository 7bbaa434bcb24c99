#include "ui/common/utils/filetypecategoryutils.h"
#include "ui/common/utils/humansize.h"
#include "ui/common/utils/scanfilerules.h"
#include "ui/common/utils/scanlog.h"

#include <QJsonObject>
#include <QtTest>

#include <limits>

Q_DECLARE_METATYPE(ui::common::utils::ScanFile)

using namespace ui::common::utils;

namespace {

constexpr qint64 kUnknownTime = std::numeric_limits<qint64>::min();

ScanFile fileOf(const QString &source, double contiguity, const QString &chance = QString(),
                bool verified = false)
{
    ScanFile file;
    file.source = source;
    file.contiguity = contiguity;
    file.probabilityKey = chance;
    file.boundaryVerified = verified;
    return file;
}

QString reasonText(const char *which)
{
    static const QHash<QByteArray, QString> kReasons = {
        {"complete", QStringLiteral("来自 EXT4 元数据恢复，目录结构与数据块映射较完整")},
        {"fragments", QStringLiteral("来自 EXT4 元数据恢复，但数据块为多段分布，存在碎片风险")},
        {"container", QStringLiteral("已识别到完整容器边界，并对内部结构做了进一步判断")},
        {"boundary", QStringLiteral("已检测到可靠的文件结尾或长度边界，完整性较好")},
        {"header", QStringLiteral("仅识别到文件头特征，未能确认结尾或内部结构")},
        {"default", QStringLiteral("已检测到可能的文件头，仍需在恢复后进一步校验")},
    };
    return kReasons.value(which);
}

} // namespace

class TestScanFileRules : public QObject
{
    Q_OBJECT

private slots:
    void sizes_data();
    void sizes();
    void categories_data();
    void categories();
    void categoryNames();
    void findings_data();
    void findings();
    void ownWords();
    void tonesAndWords();
    void deletionTimes_data();
    void deletionTimes();
    void directories_data();
    void directories();
    void fromJson();
    void unreadableJson();
    void logText();
    void logNames();
};

void TestScanFileRules::sizes_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<qint64>("bytes");
    const auto row = [](const char *text, qint64 bytes) {
        QTest::newRow(*text ? text : "empty") << QString::fromUtf8(text) << bytes;
    };
    const qint64 kib = 1024;
    row("", 0);
    row("abc", 0);
    row("12", 12);
    row("12 bytes", 12);
    row("1 byte", 1);
    row("1,024 KB", kib * kib);
    row("2 GIB", 2 * kib * kib * kib);
    row("2 GB", 2 * kib * kib * kib);
    row("  1.5   mib ", kib * kib * 3 / 2);
    row("1 TB", kib * kib * kib * kib);
    row("1 PiB", kib * kib * kib * kib * kib);
    row("12.9", 12);
    row("7 parsec", 7);
    row("7 IB", 7);
    row("12.4MB", 0);
    row("inf", 0);
    row("nan MB", 0);
    row("99999999999 PB", std::numeric_limits<qint64>::max());
}

void TestScanFileRules::sizes()
{
    QFETCH(QString, text);
    QTEST(parseHumanSizeToBytes(text), "bytes");
}

void TestScanFileRules::categories_data()
{
    QTest::addColumn<QString>("words");
    QTest::addColumn<QString>("key");
    QTest::newRow("document") << "PDF DOC XLS PPT RTF XLSX LOG DOCX PPTX WPS ET DPS TXT ODT ODS "
                                 "CSV MD pdf"
                              << "document";
    QTest::newRow("photo") << "PNG JPG JPEG BMP GIF WEBP TIFF TIF HEIC RAW CR2 NEF ARW DNG SVG "
                              "ICO PSD Jpeg"
                           << "photo";
    QTest::newRow("video") << "MP4 MKV AVI MOV WMV FLV WEBM MPEG MPG M4V 3GP TS M2TS VOB RMVB"
                           << "video";
    QTest::newRow("archive") << "GZIP ZIP RAR 7Z TAR GZ TGZ BZ2 XZ LZ4 LZMA CAB ISO DEB RPM"
                             << "archive";
    QTest::newRow("other") << "EXE MP3 未知 "
                           << "other";
}

void TestScanFileRules::categories()
{
    QFETCH(QString, words);
    QFETCH(QString, key);
    using Utils = FileTypeCategoryUtils;
    for (const QString &word : words.split(QLatin1Char(' '))) {
        QCOMPARE(Utils::categoryOfType(word), key);
        QCOMPARE(Utils::isDocumentType(word), key == QLatin1String("document"));
        QCOMPARE(Utils::isPhotoType(word), key == QLatin1String("photo"));
        QCOMPARE(Utils::isVideoType(word), key == QLatin1String("video"));
        QCOMPARE(Utils::isArchiveType(word), key == QLatin1String("archive"));
        for (const char *other : {"document", "photo", "video", "archive", "other"})
            QCOMPARE(Utils::matchesCategory(word, QLatin1String(other)),
                     key == QLatin1String(other));
        QVERIFY(Utils::matchesCategory(word, QStringLiteral("all")));
        QVERIFY(Utils::matchesCategory(word, QStringLiteral("no such key")));
    }
}

void TestScanFileRules::categoryNames()
{
    using Utils = FileTypeCategoryUtils;
    const QStringList labels = {QStringLiteral("全部类型"), QStringLiteral("文档"),
                                QStringLiteral("照片"),     QStringLiteral("视频"),
                                QStringLiteral("压缩包"),   QStringLiteral("其他")};
    QCOMPARE(Utils::categoryFilterLabels(), labels);
    const char *const keys[] = {"all", "document", "photo", "video", "archive", "other"};
    for (int i = 0; i < labels.size(); ++i) {
        QCOMPARE(Utils::categoryKeyFromLabel(labels.at(i)), QString::fromLatin1(keys[i]));
        QCOMPARE(Utils::categoryLabelFromKey(QLatin1String(keys[i])), labels.at(i));
    }
    QCOMPARE(Utils::categoryKeyFromLabel(QStringLiteral("音乐")), QStringLiteral("all"));
    QCOMPARE(Utils::categoryLabelFromKey(QStringLiteral("music")), labels.first());
}

void TestScanFileRules::findings_data()
{
    QTest::addColumn<ScanFile>("file");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<int>("score"); // with a base of 50
    const auto row = [](const char *name, const ScanFile &file, const char *label,
                        const char *reason, int score) {
        QTest::newRow(name) << file << QString::fromUtf8(label) << reasonText(reason) << score;
    };
    const QString metadata = QStringLiteral("metadata");
    const QString journal = QStringLiteral("journal");
    const QString carving = QStringLiteral("carving");
    const QString hybrid = QStringLiteral("hybrid");
    row("metadata at the bound", fileOf(metadata, 0.95), "目录完整", "complete", 778);
    row("journal", fileOf(journal, 1.0), "目录完整", "complete", 808);
    row("metadata below", fileOf(metadata, 0.949), "可能碎片", "fragments", 680);
    row("half loses nothing", fileOf(journal, 0.5), "可能碎片", "fragments", 710);
    row("below half", fileOf(journal, 0.49), "可能碎片", "fragments", 702);
    row("carved with its end", fileOf(carving, 1.0, QStringLiteral("poor"), true), "边界已验证",
        "boundary", 648);
    row("carved, poor", fileOf(carving, 0.6, QStringLiteral("poor")), "仅头部命中", "header", 460);
    row("carved, very poor", fileOf(carving, 0.6, QStringLiteral("very_poor")), "仅头部命中",
        "header", 460);
    row("carved", fileOf(carving, 0.6, QStringLiteral("good")), "待核验", "default", 550);
    row("hybrid", fileOf(hybrid, 1.0, QStringLiteral("poor"), true), "待核验", "default", 618);
    row("unknown source", fileOf(QString(), 0.7), "待核验", "default", 510);
}

void TestScanFileRules::findings()
{
    QFETCH(ScanFile, file);
    file.probScore = 50;
    const QString label = integrityLabel(file);
    QTEST(label, "label");
    QTEST(integrityReason(file, label), "reason");
    QTEST(recoverabilityScore(file, label), "score");
    QCOMPARE(contiguityText(file.contiguity), file.contiguity < 0.95
                                                  ? QStringLiteral("否（存在碎片）")
                                                  : QStringLiteral("是（连续）"));
}

void TestScanFileRules::ownWords()
{
    ScanFile file = fileOf(QStringLiteral("carving"), 0.6, QStringLiteral("poor"), true);
    file.integrityLabel = QStringLiteral("容器已验证");
    QCOMPARE(integrityLabel(file), QStringLiteral("容器已验证"));
    QCOMPARE(integrityReason(file, integrityLabel(file)), reasonText("container"));
    QCOMPARE(recoverabilityScore(file, integrityLabel(file)), (4 + 11) * 10);
    file.integrityReason = QStringLiteral("校验和一致");
    QCOMPARE(integrityReason(file, integrityLabel(file)), QStringLiteral("校验和一致"));
    // A label that no rule knows adds nothing.
    QCOMPARE(recoverabilityScore(file, QStringLiteral("新词")), 40);
}

void TestScanFileRules::tonesAndWords()
{
    const QPair<QString, int> tones[] = {{QStringLiteral("良好"), 0},
                                         {QStringLiteral("一般"), 1},
                                         {QStringLiteral("较差"), 2},
                                         {QStringLiteral("极低"), 2},
                                         {QString(), 0}};
    for (const auto &tone : tones)
        QCOMPARE(probabilityTone(tone.first), tone.second);
    const QPair<QString, QString> words[] = {
        {QStringLiteral("metadata"), QStringLiteral("元数据")},
        {QStringLiteral("journal"), QStringLiteral("日志恢复")},
        {QStringLiteral("carving"), QStringLiteral("特征扫描")},
        {QStringLiteral("hybrid"), QStringLiteral("混合")},
        {QStringLiteral("Metadata"), QStringLiteral("Metadata")},
        {QString(), QStringLiteral("未知")}};
    for (const auto &word : words)
        QCOMPARE(sourceWord(word.first), word.second);
}

void TestScanFileRules::deletionTimes_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<qint64>("ms");
    const qint64 noon = QDateTime(QDate(2024, 5, 6), QTime(12, 0, 1)).toMSecsSinceEpoch();
    QTest::newRow("blank between") << "2024-05-06 12:00:01" << noon;
    QTest::newRow("ISO") << "2024-05-06T12:00:01" << noon;
    QTest::newRow("UTC") << "1970-01-01T00:00:02Z" << qint64(2000);
    QTest::newRow("date alone") << "2024-05-06"
                                << QDateTime(QDate(2024, 5, 6), QTime(0, 0)).toMSecsSinceEpoch();
    QTest::newRow("empty") << "" << kUnknownTime;
    QTest::newRow("unknown") << QStringLiteral("未知") << kUnknownTime;
    QTest::newRow("no such month") << "2024-13-06 12:00:01" << kUnknownTime;
}

void TestScanFileRules::deletionTimes()
{
    QFETCH(QString, text);
    QTEST(deletionTimeMs(text), "ms");
    QCOMPARE(deletionTimeText(text), text.isEmpty() ? QStringLiteral("未知") : text);
}

void TestScanFileRules::directories_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("directory");
    QTest::newRow("with the name") << "/home/u/a.txt"
                                   << "/home/u";
    QTest::newRow("without") << "/home/u"
                             << "/home/u";
    QTest::newRow("in the root") << "/a.txt"
                                 << "";
    QTest::newRow("name alone") << "a.txt"
                                << "";
    QTest::newRow("only the end alike") << "/home/ba.txt"
                                        << "/home/ba.txt";
    QTest::newRow("none") << ""
                          << "";
}

void TestScanFileRules::directories()
{
    QFETCH(QString, path);
    QTEST(directoryOf(path, QStringLiteral("a.txt")), "directory");
}

void TestScanFileRules::fromJson()
{
    const ScanFile file =
        scanFileFromJson({{QStringLiteral("fileId"), QStringLiteral("f1")},
                          {QStringLiteral("sizeBytes"), 5368709120.0},
                          {QStringLiteral("probScore"), 77},
                          {QStringLiteral("blockStart"), 4294967296.0},
                          {QStringLiteral("contiguity"), 0.25},
                          {QStringLiteral("boundaryVerified"), true},
                          {QStringLiteral("deletionTime"), QStringLiteral("2024-05-06 12:00:01")}});
    QCOMPARE(file.fileId, QStringLiteral("f1"));
    QCOMPARE(file.sizeBytes, Q_INT64_C(5368709120));
    QCOMPARE(sizeText(file), QStringLiteral("5.0 GB"));
    QCOMPARE(file.probScore, 77);
    QCOMPARE(blockStartText(file), QStringLiteral("4294967296 扇区"));
    QCOMPARE(file.contiguity, 0.25);
    QVERIFY(file.boundaryVerified);
}

void TestScanFileRules::unreadableJson()
{
    const ScanFile file = scanFileFromJson({{QStringLiteral("fileId"), 12},
                                            {QStringLiteral("sizeBytes"), -5},
                                            {QStringLiteral("probScore"), QStringLiteral("x")},
                                            {QStringLiteral("blockStart"), QStringLiteral("9")},
                                            {QStringLiteral("contiguity"), QJsonValue()}});
    QVERIFY(file.fileId.isEmpty());
    QCOMPARE(file.sizeBytes, qint64(0));
    QCOMPARE(sizeText(file), QStringLiteral("0"));
    QCOMPARE(file.probScore, 0);
    QVERIFY(blockStartText(file).isEmpty());
    QCOMPARE(file.contiguity, 0.0);
}

void TestScanFileRules::logText()
{
    ScanLog log;
    log.sessionId = QStringLiteral("session-1");
    log.device = QStringLiteral("/dev/sda1");
    log.fileSystem = QStringLiteral("ext4");
    log.filesFound = QStringLiteral("2");
    log.progress = QStringLiteral("42%");
    log.elapsed = QStringLiteral("00:01:02");
    log.exportedAt = QDateTime(QDate(2024, 5, 6), QTime(7, 8, 9));
    log.entries = {{QStringLiteral("100%1.txt"), QStringLiteral("/a/%2"), QStringLiteral("1 KB"),
                    QStringLiteral("TXT"), QStringLiteral("未知"), QStringLiteral("元数据"),
                    QStringLiteral("目录完整"), QStringLiteral("理由")},
                   {QStringLiteral("b\n[   9] c"), QStringLiteral("/b\t"), QStringLiteral("0"),
                    QStringLiteral("BIN"), QStringLiteral("2024-01-01 00:00:00"),
                    QStringLiteral("混合"), QStringLiteral("待核验"), QString()}};
    const QString expected = QStringLiteral("========================================\n"
                                            "  墨川归档 扫描日志\n"
                                            "========================================\n"
                                            "\n"
                                            "会话 ID:     session-1\n"
                                            "设备:       /dev/sda1\n"
                                            "文件系统:   ext4\n"
                                            "导出时间:   2024-05-06 07:08:09\n"
                                            "已发现文件: 2\n"
                                            "当前进度:   42%\n"
                                            "已用时间:   00:01:02\n"
                                            "----------------------------------------\n"
                                            "  文件列表\n"
                                            "----------------------------------------\n"
                                            "\n"
                                            "[   1] 100%1.txt\n"
                                            "    路径: /a/%2\n"
                                            "    大小: 1 KB  类型: TXT  删除时间: 未知\n"
                                            "    来源: 元数据  完整性: 目录完整\n"
                                            "\n"
                                            "    判断依据: 理由\n"
                                            "\n"
                                            "[   2] b\\n[   9] c\n"
                                            "    路径: /b\\t\n"
                                            "    大小: 0  类型: BIN  删除时间: "
                                            "2024-01-01 00:00:00\n"
                                            "    来源: 混合  完整性: 待核验\n"
                                            "\n"
                                            "========== 日志结束 ==========\n");
    QCOMPARE(scanLogText(log), expected);
}

void TestScanFileRules::logNames()
{
    ScanLog log;
    log.exportedAt = QDateTime(QDate(2024, 5, 6), QTime(7, 8, 9));
    log.sessionId = QStringLiteral("0123456789");
    QCOMPARE(scanLogFileName(log), QStringLiteral("scan_log_01234567_20240506_070809.txt"));
    log.sessionId = QStringLiteral("../../x");
    QCOMPARE(scanLogFileName(log), QStringLiteral("scan_log_.._.._x_20240506_070809.txt"));
}

QTEST_GUILESS_MAIN(TestScanFileRules)
#include "tst_scanfilerules.moc"
