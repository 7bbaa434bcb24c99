#include "recoveryd/carve/text/textencoding.h"
#include "recoveryd/scan/contentcheck.h"
#include "recoveryd/scan/decodingcheck.h"
#include "support/diskimages.h"
#include "support/samplecontainers.h"
#include "support/scanharness.h"

#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>
#include <QtEndian>

using namespace services::recoveryd;

namespace {

using Check = Finding::Check;

QByteArray chinese(int length)
{
    const QByteArray line = "恢复的文件，第 1234 行：合同与报告。\r\n";
    return line.repeated(length / line.size() + 1);
}

QByteArray encoded(const char *codec, const QByteArray &utf8)
{
    return QTextCodec::codecForName(codec)->fromUnicode(QString::fromUtf8(utf8));
}

/// `whole` with its second half, from a sector on, replaced by `other`.
QByteArray halfOf(const QByteArray &whole, const QByteArray &other)
{
    const int at = whole.size() / 2 / 512 * 512;
    return whole.left(at) + other.left(whole.size() - at);
}

QByteArray box(const char *type, const QByteArray &body)
{
    QByteArray length(4, '\0');
    qToBigEndian<quint32>(quint32(body.size()) + 8, length.data());
    return length + type + body;
}

} // namespace

/// Contents against suffixes, and what counts as text.
class TestRecoverydContentCheck : public QObject
{
    Q_OBJECT

private slots:
    void checks_data();
    void checks();
    void decodes_data();
    void decodes();
    void tellsEncodings_data();
    void tellsEncodings();
};

void TestRecoverydContentCheck::checks_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("expected");
    const auto row = [](const char *name, const char *suffix, const QByteArray &bytes,
                        Check expected) {
        QTest::addRow("%s: %s", suffix, name)
            << QString::fromLatin1(suffix) << bytes << int(expected);
    };
    const QByteArray noise = diskimages::noise(40000, 5);
    const QByteArray zeros(40000, '\0');
    const QByteArray text = chinese(40000);
    const QByteArray docx = diskimages::container(QStringLiteral("docx"), 40000);
    const QByteArray film =
        box("ftyp", "isom\0\0\2\0isom") + box("mdat", noise) + box("moov", noise.left(900));
    const struct
    {
        const char *suffix;
        QByteArray bytes;
    } sound[] = {{"jpg", diskimages::jpeg(40000)},
                 {"png", diskimages::png(40000)},
                 {"gif", diskimages::gif(40000)},
                 {"pdf", diskimages::pdf(40000)},
                 {"docx", docx},
                 {"mp4", film},
                 {"txt", text},
                 {"csv", encoded("GB18030", text)}};
    for (const auto &file : sound) {
        row("whole", file.suffix, file.bytes, Check::Passed);
        row("zeros", file.suffix, zeros, Check::Failed);
        row("noise", file.suffix, noise, Check::Failed);
        row("second half of noise", file.suffix, halfOf(file.bytes, noise), Check::Failed);
        row("second half of zeros", file.suffix, halfOf(file.bytes, zeros), Check::Failed);
        row("too small", file.suffix, file.bytes.left(9), Check::None);
    }
    row("picture of another kind", "jpg", diskimages::png(9000), Check::Passed);
    row("document", "jpg", docx, Check::Failed);
    row("picture", "txt", diskimages::jpeg(9000), Check::Failed);
    row("document", "txt", diskimages::pdf(9000), Check::Failed);
    row("web page", "xls", "<html><table>" + text, Check::Passed);
    row("source code", "ts", "export const one = 1;\n" + text, Check::Passed);
    row("wide", "txt", encoded("UTF-16LE", text), Check::Passed);
    row("unknown suffix", "dat", noise, Check::None);
}

void TestRecoverydContentCheck::checks()
{
    QFETCH(QString, suffix);
    QFETCH(QByteArray, bytes);
    QFETCH(int, expected);
    // In two pieces on the medium, the second one first.
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("image"));
    const int cut = bytes.size() / 1024 * 512;
    QVERIFY(diskimages::write(path, bytes.mid(cut) + QByteArray(512, '\1') + bytes.left(cut)));
    const auto media = testsupport::mediaOf(path);
    QVERIFY(media);
    Finding finding;
    finding.name = "文件." + suffix.toUpper().toLatin1();
    finding.content.size = bytes.size();
    finding.content.append(0, bytes.size() - cut + 512, cut);
    finding.content.append(cut, 0, bytes.size() - cut);
    QCOMPARE(int(checkBySuffix(*media, finding)), expected);
}

void TestRecoverydContentCheck::decodes_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("expected");
    const QByteArray noise = diskimages::noise(8192, 6);
    const struct
    {
        const char *name;
        QByteArray bytes;
    } files[] = {{"jpg", diskimages::jpeg(40000)},
                 {"png", diskimages::png(40000)},
                 {"docx", diskimages::container(QStringLiteral("docx"), 40000)}};
    for (const auto &file : files) {
        QTest::addRow("%s", file.name) << file.bytes << int(Check::Passed);
        QByteArray middle = file.bytes;
        middle.replace(16384, noise.size(), noise);
        QTest::addRow("%s, a part of another file in the middle", file.name)
            << middle << int(Check::Failed);
        QTest::addRow("%s, cut", file.name) << file.bytes.left(20000) << int(Check::Failed);
    }
    QTest::newRow("no format") << noise << int(Check::None);
    QTest::newRow("nothing") << QByteArray() << int(Check::None);
}

void TestRecoverydContentCheck::decodes()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, expected);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("image"));
    const int cut = bytes.size() / 1024 * 512;
    QVERIFY(diskimages::write(path, bytes.mid(cut) + QByteArray(512, '\1') + bytes.left(cut)));
    const auto media = testsupport::mediaOf(path);
    QVERIFY(media);
    Finding finding;
    finding.content.size = bytes.size();
    finding.content.append(0, bytes.size() - cut + 512, cut);
    finding.content.append(cut, 0, bytes.size() - cut);
    QCOMPARE(int(checkByDecoding(*media, finding, [] { return true; })), expected);
}

void TestRecoverydContentCheck::tellsEncodings_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("expected");
    const QByteArray text = chinese(2000);
    const auto row = [](const char *name, const QByteArray &bytes, TextEncoding expected) {
        QTest::newRow(name) << bytes << int(expected);
    };
    row("ascii", "int main(void)\n{\n\treturn 0;\n}\n", TextEncoding::Ascii);
    row("utf-8", text.left(512), TextEncoding::Utf8);
    row("utf-8, from inside a character", text.mid(1, 512), TextEncoding::Utf8);
    const QByteArray gb = encoded("GB18030", text);
    row("gb18030", gb.left(512), TextEncoding::Gb18030);
    row("gb18030, from inside a character", gb.mid(1, 511), TextEncoding::Gb18030);
    row("utf-16", encoded("UTF-16LE", text).left(512), TextEncoding::Utf16Le);
    row("utf-16, the other way round", encoded("UTF-16BE", text).mid(2, 512),
        TextEncoding::Utf16Be);
    row("noise", diskimages::noise(512, 3), TextEncoding::None);
    row("zeros", QByteArray(512, '\0'), TextEncoding::None);
    row("text and zeros", text.left(300) + QByteArray(212, '\0'), TextEncoding::None);
    row("nothing", QByteArray(), TextEncoding::None);
}

void TestRecoverydContentCheck::tellsEncodings()
{
    QFETCH(QByteArray, bytes);
    QFETCH(int, expected);
    QCOMPARE(int(encodingOf(reinterpret_cast<const uchar *>(bytes.constData()), bytes.size())),
             expected);
}

QTEST_GUILESS_MAIN(TestRecoverydContentCheck)
#include "tst_recoveryd_contentcheck.moc"
