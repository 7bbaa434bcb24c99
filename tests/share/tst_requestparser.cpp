#include "share/requestparser.h"

#include <QtTest>

class TestRequestParser : public QObject
{
    Q_OBJECT

private slots:
    void parses_data();
    void parses();
    void keepsNulBytes();
    void takesWhateverComes();
};

void TestRequestParser::parses_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("target"); // "method rawTarget|path|query"
    QTest::addColumn<QString>("key");    // a header, or "?name" for an item of the query
    QTest::addColumn<QString>("value");
    QTest::addColumn<qint64>("length");

    const auto row = [](const char *name, const char *bytes, const char *target,
                        const char *key = "", const char *value = "", qint64 length = -1) {
        QTest::newRow(name) << QByteArray(bytes) << QString::fromUtf8(target)
                            << QString::fromUtf8(key) << QString::fromUtf8(value) << length;
    };
    row("plain", "GET /s/a/ HTTP/1.1\r\nHost: h\r\n\r\n", "GET /s/a/|/s/a/|", "host", "h");
    row("no version", "GET /x\r\n\r\n", "GET /x|/x|");
    row("one token", "GET\r\n\r\n", " ||");
    row("more blanks", "  GET   /x   HTTP/1.1\r\n\r\n", "GET /x|/x|");
    row("query", "GET /x?a=1?b HTTP/1.1\r\n\r\n", "GET /x?a=1?b|/x|a=1?b", "?a", "1?b");
    row("empty query", "GET /x? HTTP/1.1\r\n\r\n", "GET /x?|/x|");
    row("decoded item", "GET /x?name=%E4%B8%AD%26%2B+c HTTP/1.1\r\n\r\n",
        "GET /x?name=%E4%B8%AD%26%2B+c|/x|name=%E4%B8%AD%26%2B+c", "?name", "中&++c");
    row("later item wins", "GET /x?a=1&a=2 HTTP/1.1\r\n\r\n", "GET /x?a=1&a=2|/x|a=1&a=2", "?a",
        "2");
    row("path stays encoded", "GET /%2e%2e/%00 HTTP/1.1\r\n\r\n", "GET /%2e%2e/%00|/%2e%2e/%00|");
    row("later header wins", "GET / HTTP/1.1\r\nX-A: 1\r\nx-a:  2 \r\n\r\n", "GET /|/|", "x-a",
        "2");
    row("value with colon", "GET / HTTP/1.1\r\nHost: h:80\r\n\r\n", "GET /|/|", "host", "h:80");
    row("utf-8 value", "GET / HTTP/1.1\r\nX: 文件\r\n\r\n", "GET /|/|", "x", "文件");
    row("blank before colon", "GET / HTTP/1.1\r\nX-A : 1\r\n\r\n", "GET /|/|", "x-a", "1");
    row("colon first", "GET / HTTP/1.1\r\n: 1\r\n\r\n", "GET /|/|", "", "");
    row("bare line feeds", "GET / HTTP/1.1\nX-A: 1\n", "GET /|/|", "x-a", "1");
    row("behind the header", "GET / HTTP/1.1\r\nA: 1\r\n\r\nB: 2\r\n", "GET /|/|", "b", "");
    row("length", "PUT / HTTP/1.1\r\nContent-Length: 12\r\n\r\n", "PUT /|/|", "", "", 12);
    row("largest length", "PUT / H\r\nContent-Length: 9223372036854775807\r\n\r\n", "PUT /|/|", "",
        "", std::numeric_limits<qint64>::max());
    row("length too large", "PUT / H\r\nContent-Length: 9223372036854775808\r\n\r\n", "PUT /|/|");
    row("hexadecimal length", "PUT / H\r\nContent-Length: 0x10\r\n\r\n", "PUT /|/|");
    row("two lengths in one", "PUT / H\r\nContent-Length: 5, 5\r\n\r\n", "PUT /|/|");
    row("empty length", "PUT / H\r\nContent-Length:\r\n\r\n", "PUT /|/|");
    row("empty line first", "\r\n\r\nGET / HTTP/1.1\r\n\r\n", " ||");
    row("nothing", "", " ||");
}

void TestRequestParser::parses()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, key);
    const HttpRequest request = share::parseRequest(bytes);
    QTEST(QString(request.method + QLatin1Char(' ') + request.rawTarget + QLatin1Char('|') +
                  request.path + QLatin1Char('|') + request.queryString),
          "target");
    if (key.startsWith(QLatin1Char('?')))
        QTEST(request.queryParams.value(key.mid(1)), "value");
    else
        QTEST(request.headers.value(key), "value");
    QTEST(request.contentLength, "length");
}

/// A text that ended at its first NUL would be another name, or another token, than was sent.
void TestRequestParser::keepsNulBytes()
{
    const char bytes[] = "GE\0T /s/a.txt\0.png?name=a\0b HTTP/1.1\r\n"
                         "Cookie: sess=T\0\r\nX-File-Name: nul\0name.txt\r\n"
                         "Content-Length: 5\0\r\nHost\0s: h\r\n\r\n";
    const HttpRequest request = share::parseRequest(QByteArray(bytes, sizeof bytes - 1));
    const auto text = [](const char *marked) {
        return QString::fromLatin1(marked).replace(QLatin1Char('|'), QChar(QChar::Null));
    };
    QCOMPARE(request.method, text("GE|T"));
    QCOMPARE(request.path, text("/s/a.txt|.png"));
    QCOMPARE(request.queryParams.value(QStringLiteral("name")), text("a|b"));
    QCOMPARE(request.headers.value(QStringLiteral("cookie")), text("sess=T|"));
    QCOMPARE(request.headers.value(QStringLiteral("x-file-name")), text("nul|name.txt"));
    QCOMPARE(request.headers.value(text("host|s")), QStringLiteral("h"));
    QVERIFY(!request.headers.contains(QStringLiteral("host")));
    QCOMPARE(request.contentLength, qint64(-1));
}

/// Every prefix of a request, and every byte value at every place of it.
void TestRequestParser::takesWhateverComes()
{
    const QByteArray whole = "PUT /s/a?n=%4 HTTP/1.1\r\nA: b\r\nContent-Length: 3\r\n\r\nabc";
    for (int size = 0; size <= whole.size(); ++size)
        QVERIFY(share::parseRequest(whole.left(size)).contentLength <= 3);
    for (int place = 0; place < whole.size(); ++place) {
        for (int byte = 0; byte < 256; ++byte) {
            QByteArray bent = whole;
            bent[place] = static_cast<char>(byte);
            QVERIFY(share::parseRequest(bent).contentLength >= -3);
        }
    }
}

QTEST_GUILESS_MAIN(TestRequestParser)
#include "tst_requestparser.moc"
