#include "recoveryd/carve/magicindex.h"
#include "recoveryd/scan/carvingscanner.h"
#include "sampleformats.h"
#include "support/diskimages.h"
#include "support/samplecontainers.h"
#include "support/scanharness.h"

#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>

using namespace services::recoveryd;
using namespace sampleformats;
using diskimages::noise;

namespace {

QByteArray encoded(const char *codec, const QByteArray &utf8)
{
    return QTextCodec::codecForName(codec)->fromUnicode(QString::fromUtf8(utf8));
}

QByteArray padded(const QByteArray &bytes)
{
    return bytes + QByteArray((512 - bytes.size() % 512) % 512, '\0');
}

} // namespace

/// Every format by a small file of it: found to the byte, cut, and damaged.
class TestRecoverydFormats : public QObject
{
    Q_OBJECT

private slots:
    void findsBinaryFiles_data();
    void findsBinaryFiles();
    void doesNotCallExtentsWhole();
    void findsTexts_data();
    void findsTexts();
    void joinsPiecesAroundLiveBlocks();
    void survivesMutations();

private:
    QVector<Finding> scan(const QByteArray &bytes, Ranges ranges = Ranges());

    QTemporaryDir m_dir;
};

QVector<Finding> TestRecoverydFormats::scan(const QByteArray &bytes, Ranges ranges)
{
    const QString path = m_dir.filePath(QStringLiteral("image"));
    if (!diskimages::write(path, bytes))
        return {};
    CarvingScanner::Plan plan;
    plan.media = testsupport::mediaOf(path);
    plan.volume = plan.media->volume();
    plan.ranges = ranges.isEmpty() ? Ranges{{0, plan.volume.size()}} : ranges;
    CarvingScanner scanner(plan);
    testsupport::CollectingObserver observer;
    QString error;
    return scanner.scan(observer, &error) ? observer.findings : QVector<Finding>();
}

void TestRecoverydFormats::findsBinaryFiles_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<bool>("isDecoded");
    const QVector<Sample> samples = binaryFiles();
    for (const Sample &sample : samples)
        QTest::newRow(sample.name)
            << sample.bytes << QString::fromLatin1(sample.suffix) << sample.isDecoded;
}

void TestRecoverydFormats::findsBinaryFiles()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, suffix);
    QFETCH(bool, isDecoded);
    // Behind other data, and before zeros and other data.
    const QByteArray lead = noise(1536, 11);
    const QByteArray tail = noise(40000, 12);
    QVector<Finding> found = scan(lead + padded(file) + tail);
    QCOMPARE(found.size(), 1);
    QCOMPARE(found.first().extension, suffix);
    QCOMPARE(found.first().content.extents.first().physical, qint64(lead.size()));
    QCOMPARE(found.first().content.size, qint64(file.size()));
    QVERIFY(found.first().isSizeExact);
    QCOMPARE(found.first().contentCheck == Finding::Check::Passed, isDecoded);
    // Cut in the middle, where other data follow: found or not, it is not called whole.
    found = scan(lead + file.left(file.size() / 1024 * 512) + tail);
    for (const Finding &finding : qAsConst(found))
        QVERIFY(!hasEnd(finding.evidence) || finding.content.size < file.size() / 2 ||
                finding.contentCheck != Finding::Check::Passed);
    if (!isDecoded)
        return;
    // One wrong byte in what is decoded.
    QByteArray wrong = file;
    wrong[file.size() / 2] = char(wrong.at(file.size() / 2) ^ 0x10);
    for (const Finding &finding : scan(lead + padded(wrong) + tail))
        QVERIFY(finding.contentCheck != Finding::Check::Passed);
}

void TestRecoverydFormats::doesNotCallExtentsWhole()
{
    const QVector<Finding> found = scan(padded(compressedExtent()) + noise(40000, 12));
    QCOMPARE(found.size(), 1);
    QVERIFY(!hasEnd(found.first().evidence));
    QCOMPARE(found.first().contentCheck, Finding::Check::None);
}

void TestRecoverydFormats::findsTexts_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("suffix");
    const QByteArray lines = QByteArray("恢复的文件，第 12 行：合同与报告。\n").repeated(60);
    const auto row = [](const char *name, const QByteArray &text, const char *suffix) {
        QTest::newRow(name) << text << QString::fromLatin1(suffix);
    };
    row("utf-8", lines, "txt");
    row("gb18030", encoded("GB18030", lines), "txt");
    row("utf-16", "\xFF\xFE" + encoded("UTF-16LE", lines), "txt");
    row("short", "一行短的文字，只有一个扇区。\n", "txt");
    row("csv", "编号,姓名,金额\n" + QByteArray("17,李明,99.50\n").repeated(90), "csv");
    row("json", R"({"名称": "报告", "值": [)" + QByteArray("1, ").repeated(300) + "2]}\n", "json");
    row("xml", "<?xml version=\"1.0\"?>\n<root>" + lines + "</root>\n", "xml");
    row("svg", "<?xml version=\"1.0\"?>\n<svg xmlns=\"x\">" + lines + "</svg>\n", "svg");
    row("html", "<!DOCTYPE html>\n<html><body>" + lines + "</body></html>\n", "html");
    row("markdown", "# 标题\n\n- 一\n- 二\n" + lines, "md");
    row("mail",
        "From: li@example.cn\r\nTo: wang@example.cn\r\nSubject: =?utf-8?B?5ZCI?=\r\n"
        "Date: Wed, 15 May 2024 10:00:00 +0800\r\n\r\n" +
            lines,
        "eml");
    row("script", "#!/bin/sh\nset -e\n" + QByteArray("echo hello\n").repeated(90), "sh");
}

void TestRecoverydFormats::findsTexts()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, suffix);
    const QByteArray lead = noise(512, 21);
    const QVector<Finding> found =
        scan(lead + padded(text) + QByteArray(512, '\0') + noise(5000, 22));
    QCOMPARE(found.size(), 1);
    QCOMPARE(found.first().extension, suffix);
    QCOMPARE(found.first().content.extents.first().physical, qint64(lead.size()));
    QCOMPARE(found.first().content.size, qint64(text.size()));
    // Nothing tells whether the text is the whole of a file.
    QVERIFY(found.first().isSizeExact && !hasEnd(found.first().evidence));
}

void TestRecoverydFormats::joinsPiecesAroundLiveBlocks()
{
    const QByteArray live = noise(8192, 31);
    struct
    {
        QByteArray bytes;
        bool isSure;
    } files[] = {{diskimages::png(20000), true},
                 {diskimages::jpeg(20000), true},
                 {diskimages::container(QStringLiteral("docx"), 20000), true},
                 {diskimages::pdf(20000), false}};
    for (const auto &file : files) {
        const QByteArray head = file.bytes.left(8192);
        const QByteArray rest = padded(file.bytes.mid(8192));
        const Ranges free = {{0, 8192}, {16384, rest.size()}};
        const QVector<Finding> found = scan(head + live + rest, free);
        QCOMPARE(found.size(), 1);
        const Finding &one = found.first();
        QCOMPARE(one.content.extents,
                 (QVector<Extent>{{0, 0, 8192}, {8192, 16384, file.bytes.size() - 8192}}));
        QCOMPARE(hasEnd(one.evidence), file.isSure);
        // The same bytes without knowledge of what is free: broken, and said to be so.
        for (const Finding &broken : scan(head + live + rest))
            QVERIFY(broken.contentCheck != Finding::Check::Passed);
    }
}

void TestRecoverydFormats::survivesMutations()
{
    // Lengths, counts and offsets of every format go wrong; what is found must lie on the medium.
    const QVector<Sample> samples = binaryFiles();
    for (const Sample &sample : samples) {
        const QByteArray damage = noise(512, quint32(sample.bytes.size()));
        QByteArray image;
        for (int i = 0; i < 24; ++i) {
            QByteArray file = sample.bytes.left(8192);
            for (int k = 0; k < 1 + i / 4; ++k) {
                const int at = 4 + uchar(damage.at((7 * i + k) % 512)) * 3 % 600;
                if (at < file.size())
                    file[at] = i % 3 == 0 ? char(0xFF) : damage.at((11 * i + 5 * k) % 512);
            }
            image += padded(file);
        }
        for (const Finding &finding : scan(image))
            for (const Extent &extent : finding.content.extents)
                QVERIFY(extent.physical >= 0 && extent.physicalEnd() <= image.size());
    }
}

QTEST_GUILESS_MAIN(TestRecoverydFormats)
#include "tst_recoveryd_formats.moc"
