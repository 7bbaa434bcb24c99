#include "search/text/encoding.h"

#include <QTest>
#include <QTextCodec>

using search::text::decodeText;
using search::text::detectEncoding;

namespace {

/// Short notes as people keep them, of six characters each.
QStringList simplifiedNotes()
{
    return QStringLiteral(
               "会议纪要草稿 今天下午三点 合同付款方式 采购清单报价 项目验收报告 明天交房租水 "
               "联系电话地址 孩子学校缴费 北京出差行程 年终总结大纲 数据备份方案 客户拜访记录 "
               "记得买菜做饭 春节放假通知 服务器的密码 财务报销流程 图书馆还书了 周末爬山计划 "
               "技术文档目录 发票抬头信息")
        .split(QLatin1Char(' '));
}

QStringList traditionalNotes()
{
    return QStringLiteral(
               "會議紀要草稿 今天下午三點 合約付款方式 採購清單報價 專案驗收報告 聯絡電話地址 "
               "孩子學校繳費 台北出差行程 年終總結大綱 資料備份方案 客戶拜訪記錄 記得買菜做飯 "
               "春節放假通知 伺服器的密碼 財務報銷流程 圖書館還書了 週末爬山計劃 技術文件目錄")
        .split(QLatin1Char(' '));
}

QStringList japaneseNotes()
{
    return QStringLiteral(
               "会議の議事録 明日の予定表 買い物リスト 請求書の控え 東京への出張 電話番号一覧 "
               "パスワード帳 今日のごはん 日本語の勉強 旅行のメモ帳")
        .split(QLatin1Char(' '));
}

QStringList koreanNotes()
{
    return QStringLiteral(
               "회의록초안정리 내일오전일정표 서울출장준비물 계약서검토사항 전화번호목록표 "
               "연말정산자료실 주간업무보고서 고객방문기록부 프로젝트계획서 생일선물준비함")
        .split(QLatin1Char(' '));
}

QByteArray encoded(const QString &text, const QByteArray &codec)
{
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    return QTextCodec::codecForName(codec)->fromUnicode(text.constData(), text.size(), &state);
}

} // namespace

class TestTextEncoding : public QObject
{
    Q_OBJECT

private slots:
    void tellsShortNotes_data();
    void tellsShortNotes();
    void decodesTexts_data();
    void decodesTexts();
};

void TestTextEncoding::tellsShortNotes_data()
{
    QTest::addColumn<QStringList>("notes");
    QTest::addColumn<QByteArray>("codec");
    const auto row = [](const QStringList &notes, const char *codec) {
        QTest::newRow(codec) << notes << QByteArray(codec);
    };
    row(simplifiedNotes(), "UTF-8");
    row(simplifiedNotes(), "GB18030");
    row(simplifiedNotes(), "UTF-16LE");
    row(simplifiedNotes(), "UTF-16BE");
    row(traditionalNotes(), "Big5");
    row(japaneseNotes(), "Shift_JIS");
    row(koreanNotes(), "EUC-KR");
}

void TestTextEncoding::tellsShortNotes()
{
    QFETCH(QStringList, notes);
    QFETCH(QByteArray, codec);
    QStringList wrong;
    for (const QString &note : qAsConst(notes)) {
        if (decodeText(encoded(note, codec)) != note)
            wrong.append(note);
    }
    QVERIFY2(wrong.size() * 100 <= notes.size() * 15,
             qPrintable(wrong.join(QLatin1Char(' ')) + QStringLiteral(" are misread")));
}

void TestTextEncoding::decodesTexts_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("cut");
    QTest::addColumn<QString>("expected");
    const QString table = QStringLiteral("编号,姓名,金额\n1,张三,1200.50\n2,李四,88\n");
    const QString mixed = QStringLiteral("The contract 合同 of 2024 was signed.");
    QTest::newRow("table in GBK") << encoded(table, "GBK") << false << table;
    QTest::newRow("table in UTF-16 with a mark")
        << "\xFF\xFE" + encoded(table, "UTF-16LE") << false << table;
    QTest::newRow("table in UTF-32 with a mark")
        << QByteArray("\xFF\xFE\0\0", 4) + encoded(table, "UTF-32LE") << false << table;
    QTest::newRow("character sets that switch")
        << QByteArray("\x1B$B2q5D\x1B(B") << false << QStringLiteral("会議");
    QTest::newRow("UTF-8 mark is dropped") << "\xEF\xBB\xBF" + table.toUtf8() << false << table;
    QTest::newRow("English in UTF-16") << encoded(QStringLiteral("plain words"), "UTF-16BE")
                                       << false << QStringLiteral("plain words");
    QTest::newRow("mostly ASCII") << encoded(mixed, "GBK") << false << mixed;
    QTest::newRow("one bad byte stays UTF-8")
        << table.toUtf8() + '\xFF' << false << table + QChar(0xFFFD);
    QTest::newRow("UTF-8 cut inside a character")
        << QStringLiteral("会议纪").toUtf8().left(8) << true << QStringLiteral("会议");
    QTest::newRow("GBK cut inside a character")
        << encoded(table, "GBK").left(6) << true << QStringLiteral("编号,");
    QTest::newRow("pairs that are valid UTF-8 too")
        << encoded(QStringLiteral("联通"), "GBK") << false << QStringLiteral("联通");
    const QString russian = QStringLiteral("Привет");
    QTest::newRow("Russian in UTF-8") << russian.toUtf8() << false << russian;
    const QString french = QStringLiteral("déjà vu à côté");
    QTest::newRow("French in UTF-8") << french.toUtf8() << false << french;
    QTest::newRow("binary") << QByteArray("\x7F"
                                          "ELF\x02\x01\x01\0\0\0\0\0\0",
                                          13)
                            << false << QString();
    QTest::newRow("empty") << QByteArray() << false << QString();
}

void TestTextEncoding::decodesTexts()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, cut);
    QTEST(decodeText(bytes, cut), "expected");
}

QTEST_APPLESS_MAIN(TestTextEncoding)
#include "tst_textencoding.moc"
