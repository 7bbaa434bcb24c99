#include "ui/pages/globalsettingspage/settingsrules.h"
#include "ui/pages/helpguidepage/guidetext.h"

#include <QFile>
#include <QTest>

using namespace helpguide;

class TestGuideText : public QObject
{
    Q_OBJECT

private slots:
    void rendersItsSubset_data();
    void rendersItsSubset();
    void keepsToTheSubset();
    void describesSettings();
};

void TestGuideText::rendersItsSubset_data()
{
    QTest::addColumn<QString>("markdown");
    QTest::addColumn<QString>("body");
    QTest::addColumn<QStringList>("sections");
    const QString pre = QStringLiteral("<pre style='background:#000002;border:1px solid #000003;"
                                       "border-radius:8px;padding:10px;color:#000001;'>");
    const QString list = QStringLiteral("<ul style='color:#000001;'>");
    const QString text = QStringLiteral("<p style='color:#000001;line-height:1.6;'>");
    QTest::newRow("headings") << "# A & B\n### C\n## D"
                              << "<h1 id='section-1' style='color:#000001;'>A &amp; B</h1>"
                                 "<h3 id='section-2' style='color:#000001;'>C</h3>"
                                 "<h2 id='section-3' style='color:#000001;'>D</h2>"
                              << QStringList{QStringLiteral("1 A & B section-1"),
                                             QStringLiteral("3 C section-2"),
                                             QStringLiteral("2 D section-3")};
    QTest::newRow("four marks are text")
        << "#### x" << text + QStringLiteral("#### x</p>") << QStringList();
    QTest::newRow("a marker in a title is no place")
        << "# %1 %4"
        << "<h1 id='section-1' style='color:#000001;'>%1 %4</h1>"
        << QStringList{QStringLiteral("1 %1 %4 section-1")};
    QTest::newRow("list, then text")
        << "- a\n* b<i>\nc"
        << list + QStringLiteral("<li>a</li><li>b&lt;i&gt;</li></ul>") + text +
               QStringLiteral("c</p>")
        << QStringList();
    QTest::newRow("a list and a blank line")
        << "- a\n\n- b"
        << list + QStringLiteral("<li>a</li></ul>") + list + QStringLiteral("<li>b</li></ul>")
        << QStringList();
    QTest::newRow("code, unclosed")
        << "```sh\n# x <y>\n- z" << pre + QStringLiteral("# x &lt;y&gt;\n- z\n</pre>")
        << QStringList();
    QTest::newRow("no inline marks, carriage returns")
        << "**a** [b](c)\r\n"
        << text + QStringLiteral("**a** [b](c)</p>") << QStringList();
}

void TestGuideText::rendersItsSubset()
{
    QFETCH(QString, markdown);
    QFETCH(QString, body);
    const GuideColors colors{QColor(0, 0, 1), QColor(0, 0, 2), QColor(0, 0, 3)};
    QVector<GuideSection> sections;
    QCOMPARE(markdownToHtml(markdown, colors, &sections),
             QStringLiteral("<html><head><meta charset='utf-8'></head><body>") + body +
                 QStringLiteral("</body></html>"));
    QStringList found;
    for (const GuideSection &section : sections)
        found.append(QStringLiteral("%1 ").arg(section.level) + section.title + QLatin1Char(' ') +
                     section.anchor);
    QTEST(found, "sections");
}

// The texts that are shipped use no mark-up that would stand literally on the page.
void TestGuideText::keepsToTheSubset()
{
    QFile file(QStringLiteral(MORVANE_MD_DIR "/help_guide.md"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString guide = QString::fromUtf8(file.readAll());
    for (const char *mark : {"**", "](", "####", "`~", "|--", "\n> "})
        QVERIFY2(!guide.contains(QLatin1String(mark)), mark);
    QVector<GuideSection> sections;
    markdownToHtml(guide, GuideColors(), &sections);
    QVERIFY(sections.size() > 15);
}

void TestGuideText::describesSettings()
{
    using namespace globalsettings;
    const auto textFor = [](double scale) {
        return fontScaleChoices().at(fontScaleIndex(scale)).text;
    };
    QCOMPARE(textFor(1.4), QStringLiteral("140%"));
    QCOMPARE(textFor(1.26), QStringLiteral("125%"));
    QCOMPARE(textFor(9), QStringLiteral("140%"));
    QCOMPARE(textFor(0), QStringLiteral("115%（默认）"));
    QCOMPARE(textFor(qQNaN()), QStringLiteral("115%（默认）"));
    const QDateTime noon(QDate(2026, 3, 4), QTime(12, 0));
    QCOMPARE(latestVersionText(QStringLiteral("1.2"), noon), QStringLiteral("1.2 (2026-03-04)"));
    QCOMPARE(latestVersionText(QStringLiteral("1.2"), QDateTime()), QStringLiteral("1.2"));
    QCOMPARE(latestVersionText(QString(), noon), QStringLiteral("暂无"));
    QCOMPARE(downloadText(0, 10), QString());
    QCOMPARE(downloadText(1024, -1), QStringLiteral("正在下载更新包...（1.0 KB）"));
}

QTEST_GUILESS_MAIN(TestGuideText)
#include "tst_guidetext.moc"
