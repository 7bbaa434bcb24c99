#include "support/shareharness.h"

#include <QDir>
#include <QRegularExpression>
#include <QtTest>

/// Every name that a file may have survives the way through the pages, byte for byte.
namespace {

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(none)");
}

/// The values of an attribute in the order of the page, without its head. They are percent-encoded,
/// so no entity stands in them.
QList<QByteArray> attributes(const HttpReply &reply, const char *attribute)
{
    QList<QByteArray> values;
    const QRegularExpression pattern(QLatin1String(attribute) + QStringLiteral("='([^']*)'"));
    auto match =
        pattern.globalMatch(QString::fromUtf8(reply.body.mid(reply.body.indexOf("<main"))));
    while (match.hasNext())
        values.append(match.next().captured(1).toUtf8());
    return values;
}

} // namespace

class TestShareNames : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void survive_data();
    void survive();
    void namesOfAnyLengthAreUploaded_data();
    void namesOfAnyLengthAreUploaded();

private:
    int put(const QByteArray &url, const QByteArray &name, const QByteArray &body, bool overwrite)
    {
        return m_share
            ->request("PUT " + url + " HTTP/1.1\r\nX-File-Name: " + name.toPercentEncoding() +
                      "\r\nX-Overwrite: " + (overwrite ? "1" : "0") +
                      "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body)
            .status;
    }
    TempTree &tree() { return m_share->tree(); }

    QScopedPointer<ShareHarness> m_share;
};

void TestShareNames::init()
{
    m_share.reset(new ShareHarness);
    ShareSession session = ShareHarness::session(QStringLiteral("up"));
    session.accessMode = QStringLiteral("upload");
    m_share->add(session);
    m_share->addRoot(session.id, QStringLiteral("d"), tree().dir("d"));
}

void TestShareNames::survive_data()
{
    QTest::addColumn<QString>("name");
    const QStringList names{QStringLiteral("%41.txt"),   QStringLiteral("%"),
                            QStringLiteral("%%"),        QStringLiteral("100%.txt"),
                            QStringLiteral("50%25.txt"), QStringLiteral("%zz"),
                            QStringLiteral("%2525"),     QStringLiteral("a%2Fb"),
                            QStringLiteral("%00"),       QStringLiteral("%2e%2e"),
                            QStringLiteral("中%E4文 %"), QStringLiteral("a b+c"),
                            QStringLiteral("?q=1&r#f"),  QStringLiteral("'\"<b>&amp;"),
                            QStringLiteral(" end "),     QStringLiteral("line\nfeed"),
                            QStringLiteral(":x"),        QStringLiteral("~;,=@$!*()[]{}|^`"),
                            QStringLiteral("😀.txt"),     QStringLiteral("e\u0301"),
                            QString(85, QChar(0x4e2d))};
    for (const QString &name : names)
        QTest::newRow(QUrl::toPercentEncoding(name).left(40).constData()) << name;
}

void TestShareNames::survive()
{
    QFETCH(QString, name);
    const QByteArray utf8 = name.toUtf8();
    const QString inside = QStringLiteral("d/folder ") + name.left(80);
    tree().file("d/A.txt", "A.txt"); // what "%41.txt" would be if it were decoded once too often
    tree().file(QStringLiteral("d/") + name, "the content of " + utf8);
    tree().file(inside + QLatin1Char('/') + name, "inside of " + utf8);

    const HttpReply page = m_share->get("/s/up/d/");
    QList<QByteArray> links = attributes(page, "href").mid(2); // behind the crumbs
    QCOMPARE(links.size(), 4);                                 // and the maker's link at the end
    QVERIFY(
        page.says((QString(name).toHtmlEscaped().replace(QLatin1Char('\''), QLatin1String("&#39;")))
                      .toUtf8()
                      .constData()));
    const bool isFirst = name < QLatin1String("A.txt");
    QCOMPARE(m_share->get(links.at(isFirst ? 2 : 1)).body, QByteArray("A.txt"));
    const HttpReply file = m_share->get(links.at(isFirst ? 1 : 2));
    QCOMPARE(file.body, "the content of " + utf8);
    QVERIFY(file.headers.value("Content-Disposition")
                .endsWith("filename*=UTF-8''" + QUrl::toPercentEncoding(name)));

    const HttpReply entered = m_share->get(links.at(0));
    QCOMPARE(entered.status, 200);
    links = attributes(entered, "href");                    // crumbs, the way up, the file
    QCOMPARE(m_share->get(links.at(2)).body, entered.body); // a crumb leads here
    QCOMPARE(m_share->get(links.at(3)).body, page.body);
    QCOMPARE(m_share->get(links.at(4)).body, "inside of " + utf8);

    const QByteArray check = attributes(entered, "data-check").value(0) + "?name=";
    const QByteArray putUrl = attributes(entered, "data-put").value(0);
    const QString target = tree().path(inside + QLatin1Char('/') + name);
    if (name == name.trimmed()) // a check asks for the trimmed name
        QVERIFY(m_share->get(check + utf8.toPercentEncoding()).says("\"exists\":true"));
    QCOMPARE(put(putUrl, utf8, "new", false), 409);
    QCOMPARE(put(putUrl, utf8, "new", true), 200);
    QCOMPARE(contentOf(target), QByteArray("new"));
    QVERIFY(QFile::remove(target));
    QVERIFY(m_share->get(check + utf8.toPercentEncoding()).says("\"exists\":false"));
    QCOMPARE(put(putUrl, utf8, "newer", false), 201);
    QCOMPARE(contentOf(target), QByteArray("newer"));
    QCOMPARE(
        QDir(tree().path(inside)).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
        QStringList(name));
}

void TestShareNames::namesOfAnyLengthAreUploaded_data()
{
    QTest::addColumn<int>("length");
    for (const int length : {1, 248, 249, 254, 255})
        QTest::addRow("%d bytes", length) << length;
}

void TestShareNames::namesOfAnyLengthAreUploaded()
{
    QFETCH(int, length);
    const QByteArray name(length, 'n');
    const QString target = tree().path(QStringLiteral("d/") + QString::fromLatin1(name));
    QCOMPARE(put("/s/up/upload/d", name, "first", false), 201);
    QCOMPARE(contentOf(target), QByteArray("first"));
    QCOMPARE(put("/s/up/upload/d", name, "second", true), 200);
    QCOMPARE(contentOf(target), QByteArray("second"));
    if (length == 255)
        QCOMPARE(put("/s/up/upload/d", name + 'n', "too long", false), 500);
    QCOMPARE(
        QDir(tree().path("d")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
        QStringList(QString::fromLatin1(name)));
}

QTEST_GUILESS_MAIN(TestShareNames)
#include "tst_sharenames.moc"
