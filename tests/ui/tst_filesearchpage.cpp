#include "search/indexwatcher.h"
#include "support/dialogsteps.h"
#include "support/indexsnapshot.h"
#include "support/typing.h"
#include "ui/common/theme.h"
#include "ui/pages/filesearchpage/snippettext.h"
#include "ui/searchpagefixture.h"

#include <QAbstractItemView>
#include <QCheckBox>
#include <QComboBox>
#include <QDateTime>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRegularExpression>
#include <QTest>
#include <QTimer>

using core::AppMode;
using support::ModalDriver;

namespace {

constexpr auto Names = SearchPageFixture::Names;
constexpr auto Contents = SearchPageFixture::Contents;

QStringList list(const char *text)
{
    QStringList words = QString::fromUtf8(text).split(QLatin1Char(' '));
    words.removeAll(QString());
    return words;
}

/// A sparse file of that size and age.
void shape(const QString &path, qint64 bytes, qint64 ageDays)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.resize(bytes));
    QVERIFY(file.setFileTime(QDateTime::currentDateTime().addDays(-ageDays).addSecs(60),
                             QFileDevice::FileModificationTime));
}

} // namespace

class TestFileSearchPage : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void marksSnippets_data();
    void marksSnippets();
    void leadsFromFirstUseToRows();
    void firstUseHintCanWait();
    void knowsAnIndexFromAnEmptyDatabase();
    void waitsWithTheSearchUntilTypingRests();
    void filtersTheCache_data();
    void filtersTheCache();
    void refinesByANewSearch();
    void showsContentAsCards();
    void clearsWithTheText();
    void showsErrors();
    void searchesATargetSystem();
    void staysHarmlessWithoutATarget();

private:
    QStringList sorted(QStringList names)
    {
        names.sort();
        return names;
    }

    QScopedPointer<SearchPageFixture> m_f;
};

void TestFileSearchPage::init()
{
    m_f.reset(new SearchPageFixture);
}

void TestFileSearchPage::cleanup()
{
    m_f.reset();
}

void TestFileSearchPage::marksSnippets_data()
{
    QTest::addColumn<QString>("snippet");
    QTest::addColumn<QString>("html");
    const auto row = [](const char *tag, const char *snippet, const char *html) {
        QTest::newRow(tag) << QString::fromUtf8(snippet) << QString::fromUtf8(html);
    };
    row("plain", "a报告", "a报告");
    row("one mark", "x <b>报告</b> y", "x [报告] y");
    row("several", "<b>a</b><b>b</b>", "[a][b]");
    row("markup of the file", "<i>&amp;</i> <script>\"<b>x</b>\"",
        "&lt;i&gt;&amp;amp;&lt;/i&gt; &lt;script&gt;&quot;[x]&quot;");
    row("markup inside the mark", "<b><u></b>", "[&lt;u&gt;]");
    row("open mark only", "a <b>c", "a &lt;b&gt;c");
    row("closing mark only", "a</b> <b>c</b>", "a&lt;/b&gt; [c]");
}

void TestFileSearchPage::marksSnippets()
{
    QFETCH(QString, snippet);
    const auto colors = ui::common::ThemeColors::light();
    QString html = filesearch::snippetToRichText(snippet, colors);
    QCOMPARE(html.count(QStringLiteral("background-color:") + colors.highlightBackground.name()),
             html.count(QStringLiteral("</span>")));
    html.replace(QRegularExpression(QStringLiteral("<span style=[^>]*>")), QStringLiteral("["));
    html.replace(QStringLiteral("</span>"), QStringLiteral("]"));
    QTEST(html, "html");
}

void TestFileSearchPage::leadsFromFirstUseToRows()
{
    m_f->file(QStringLiteral("文档/报告_旧.txt"));
    shape(m_f->home(QStringLiteral("文档/报告_旧.txt")), 4, 3);
    m_f->file(QStringLiteral("文档/报告_新.txt"));
    m_f->file(QStringLiteral("文档/其他.txt"));
    m_f->open();
    QVERIFY(m_f->child<QWidget>("FirstUseCard")->isVisible());
    QCOMPARE(m_f->status(), QStringLiteral("首次使用请先点击'构建索引'。"));
    QCOMPARE(m_f->state(Names), QStringLiteral("输入关键词开始搜索"));

    m_f->click("FirstUseCreateButton");
    QVERIFY(!m_f->child<QWidget>("FirstUseCard")->isVisible());
    QTRY_COMPARE(m_f->status(), QStringLiteral("索引构建完成，共 3 个文件"));
    QVERIFY(!m_f->child<QWidget>("BuildProgressCard")->isVisible());
    const QString stats = QStringLiteral("文件名索引：3 个文件 | 全文索引：3 条 | 上次更新：%1")
                              .arg(QDate::currentDate().toString(QStringLiteral("yyyy-MM-dd")));
    QTRY_VERIFY2(m_f->stats().startsWith(stats), qPrintable(m_f->stats()));

    m_f->search(Names, QStringLiteral("报告"));
    QTRY_COMPARE(m_f->rows(Names), list("报告_新.txt 报告_旧.txt"));
    QCOMPARE(m_f->footer(Names), QStringLiteral("共 2 条结果"));
    m_f->search(Names, QStringLiteral("没有这个"));
    QTRY_COMPARE(m_f->state(Names), QStringLiteral("没有找到匹配的文件"));
    QCOMPARE(m_f->footer(Names), QStringLiteral("共 0 条结果"));
}

void TestFileSearchPage::firstUseHintCanWait()
{
    m_f->open();
    m_f->click("FirstUseLaterButton");
    QVERIFY(!m_f->child<QWidget>("FirstUseCard")->isVisible());
    QCOMPARE(m_f->status(), QStringLiteral("你可以随时点击'构建索引'开始索引。"));
    // Statistics that arrive later leave it so.
    QTRY_VERIFY(m_f->stats().startsWith(QStringLiteral("文件名索引：0")));
    QVERIFY(!m_f->child<QWidget>("FirstUseCard")->isVisible());
}

void TestFileSearchPage::knowsAnIndexFromAnEmptyDatabase()
{
    m_f->setSetting(QStringLiteral("search/inotifyMaxDepth"), -1);
    m_f->open();
    QTRY_VERIFY(QFileInfo::exists(m_f->databasePath()));
    m_f->open();
    QTRY_VERIFY(m_f->child<QWidget>("FirstUseCard")->isVisible());
    m_f->file(QStringLiteral("a.txt"));
    QVERIFY(m_f->build());
    m_f->open();
    QCOMPARE(m_f->status(), QStringLiteral("索引已就绪"));
    QTRY_VERIFY(m_f->stats().startsWith(QStringLiteral("文件名索引：1")));
    QVERIFY(!m_f->child<QWidget>("FirstUseCard")->isVisible());
}

void TestFileSearchPage::waitsWithTheSearchUntilTypingRests()
{
    m_f->file(QStringLiteral("abc.txt"));
    m_f->open();
    QVERIFY(m_f->build());
    const auto waiting = [this](int ms) {
        int count = 0;
        const auto timers = m_f->child<QWidget>("NameSearchView")
                                ->findChildren<QTimer *>(QString(), Qt::FindDirectChildrenOnly);
        for (const QTimer *timer : timers)
            count += timer->isActive() && timer->isSingleShot() && timer->interval() == ms ? 1 : 0;
        return count;
    };
    m_f->search(Names, QStringLiteral("ab"));
    QCOMPARE(waiting(250), 1);
    QCOMPARE(m_f->rows(Names), QStringList());
    QTest::keyClick(m_f->child<QLineEdit>("NameSearchEdit"), Qt::Key_Return);
    QCOMPARE(waiting(250), 0);
    QTRY_COMPARE(m_f->rows(Names), list("abc.txt"));

    auto *editor = m_f->inView<QLineEdit>(Names, "KeywordTagEditor");
    support::typeInto(editor, QStringLiteral("不"));
    QCOMPARE(waiting(300), 1);
    QTest::keyClick(editor, Qt::Key_Return);
    QCOMPARE(waiting(300), 0);
    QTRY_COMPARE(m_f->state(Names), QStringLiteral("没有找到匹配的文件"));
}

void TestFileSearchPage::filtersTheCache_data()
{
    QTest::addColumn<QStringList>("choices"); // Each with the numbers of the files that it keeps.
    QTest::newRow("CategoryFilter") << QStringList(
        {QStringLiteral("全部类型:1234567"), QStringLiteral("文档:1"), QStringLiteral("图片:2"),
         QStringLiteral("视频:3"), QStringLiteral("音频:4"), QStringLiteral("压缩包:5"),
         QStringLiteral("代码:6")});
    QTest::newRow("SizeFilter") << QStringList(
        {QStringLiteral("不限大小:1234567"), QStringLiteral("< 1 MB:1467"),
         QStringLiteral("1-100 MB:25"), QStringLiteral("> 100 MB:3")});
    QTest::newRow("TimeFilter") << QStringList(
        {QStringLiteral("不限时间:1234567"), QStringLiteral("最近 1 天:12"),
         QStringLiteral("最近 1 周:123"), QStringLiteral("最近 1 月:1234"),
         QStringLiteral("最近 1 年:123456")});
}

void TestFileSearchPage::filtersTheCache()
{
    const qint64 mib = 1024 * 1024;
    const struct
    {
        const char *name;
        qint64 bytes;
        qint64 ageDays;
    } files[] = {{"f1.txt", 5, 0},
                 {"f2.jpg", mib, 1},
                 {"f3.mp4", 100 * mib, 7},
                 {"f4.mp3", mib - 1, 30},
                 {"f5.zip", 100 * mib - 1, 365},
                 {"f6.py", 5, 364},
                 {"f7", 5, 400}};
    m_f->setSetting(QStringLiteral("search/ftsExtensions"), QStringList());
    for (const auto &entry : files)
        shape(m_f->file(QString::fromLatin1(entry.name)), entry.bytes, entry.ageDays);
    m_f->open();
    QVERIFY(m_f->build());
    m_f->search(Names, QStringLiteral("user/f"));
    QTRY_COMPARE(m_f->rows(Names).size(), 7);
    // With the index gone only the cache can answer.
    QVERIFY(QFile::remove(m_f->databasePath()));

    QFETCH(QStringList, choices);
    auto *combo = m_f->inView<QComboBox>(Names, QTest::currentDataTag());
    QCOMPARE(combo->count(), choices.size());
    for (int i = 0; i < choices.size(); ++i) {
        const QStringList choice = choices.at(i).split(QLatin1Char(':'));
        QCOMPARE(combo->currentText(), choice.at(0));
        QString kept;
        const QStringList rows = sorted(m_f->rows(Names));
        for (const QString &name : rows)
            kept += name.at(1);
        QCOMPARE(kept, choice.at(1));
        QCOMPARE(m_f->footer(Names), QStringLiteral("共 %1 条结果").arg(kept.size()));
        QTest::keyClick(combo, Qt::Key_Down);
    }
}

void TestFileSearchPage::refinesByANewSearch()
{
    for (const char *name : {"报告_季度.txt", "报告_年度.txt", "报告_年度.docx"})
        m_f->file(QString::fromUtf8(name));
    m_f->open();
    QVERIFY(m_f->build());
    m_f->search(Names, QStringLiteral("报告"));
    QTRY_COMPARE(m_f->rows(Names).size(), 3);

    auto *editor = m_f->inView<QLineEdit>(Names, "KeywordTagEditor");
    support::typeInto(editor, QStringLiteral("年度"));
    QTRY_COMPARE(sorted(m_f->rows(Names)), list("报告_年度.docx 报告_年度.txt"));
    support::typeInto(editor, QStringLiteral(";docx;"));
    QTRY_COMPARE(m_f->rows(Names), list("报告_年度.docx"));
    support::typeInto(editor, QStringLiteral("pdf,"));
    QTRY_COMPARE(m_f->state(Names), QStringLiteral("没有找到匹配的文件"));
    QTest::mouseClick(m_f->inView<QPushButton>(Names, "EmptyStateButton"), Qt::LeftButton);
    QTRY_COMPARE(m_f->rows(Names).size(), 3);

    auto *size = m_f->inView<QComboBox>(Names, "SizeFilter");
    QTest::keyClick(size, Qt::Key_End);
    QCOMPARE(m_f->state(Names), QStringLiteral("没有符合筛选条件的结果"));
    QTest::mouseClick(m_f->inView<QPushButton>(Names, "EmptyStateButton"), Qt::LeftButton);
    QTRY_COMPARE(m_f->rows(Names).size(), 3);
    QCOMPARE(size->currentIndex(), 0);
}

void TestFileSearchPage::showsContentAsCards()
{
    m_f->file(QStringLiteral("页面.txt"), "<script>x</script> 预算 needle <u>y</u>");
    m_f->file(QStringLiteral("短.txt"), "needle");
    m_f->file(QStringLiteral("needle.txt"), "nothing");
    m_f->open();
    QVERIFY(m_f->build());
    m_f->choose(Contents);
    QTRY_VERIFY(m_f->child<QLineEdit>("ContentSearchEdit")->hasFocus());
    m_f->search(Contents, QStringLiteral("needle"));
    QTRY_COMPARE(sorted(m_f->rows(Contents)), sorted(list("短.txt 页面.txt")));
    QCOMPARE(m_f->footer(Contents), QStringLiteral("共 2 条结果"));
    auto *cards = m_f->results(Contents);
    const int narrow = cards->visualRect(cards->model()->index(0, 0)).height();

    support::typeInto(m_f->inView<QLineEdit>(Contents, "KeywordTagEditor"),
                      QStringLiteral("预算;"));
    QTRY_COMPARE(m_f->rows(Contents), list("页面.txt"));
    const QRect card = cards->visualRect(cards->model()->index(0, 0));
    QVERIFY(card.height() > narrow);
    // The keyword and the refine keyword stand on the highlight colour.
    const QImage image = cards->viewport()->grab(card).toImage();
    const QColor highlight = ui::common::ThemeColors::current().highlightBackground;
    QSet<int> lines;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (image.pixelColor(x, y) == highlight)
                lines.insert(y / 20);
        }
    }
    QVERIFY2(lines.size() >= 2, qPrintable(QString::number(lines.size())));
}

void TestFileSearchPage::clearsWithTheText()
{
    m_f->file(QStringLiteral("a.txt"));
    m_f->open();
    QVERIFY(m_f->build());
    m_f->search(Names, QStringLiteral("a.t"));
    QTRY_COMPARE(m_f->rows(Names).size(), 1);
    m_f->search(Names, QStringLiteral("  "));
    QTRY_COMPARE(m_f->state(Names), QStringLiteral("输入关键词开始搜索"));
    QCOMPARE(m_f->footer(Names), QString());
    // The answer to a search that was under way when the text went.
    m_f->page()->onNameSearchCompleted(
        {QVariantMap{{QStringLiteral("path"), QStringLiteral("/x")}}}, QString());
    QCOMPARE(m_f->state(Names), QStringLiteral("输入关键词开始搜索"));
}

void TestFileSearchPage::showsErrors()
{
    m_f->setSetting(QStringLiteral("search/inotifyMaxDepth"), -1);
    m_f->file(QStringLiteral(".config/morvane/search_index.db"), QByteArray(5000, 'x'));
    m_f->open();
    QTRY_COMPARE(m_f->stats(), QStringLiteral("索引状态：不可用"));
    m_f->search(Names, QStringLiteral("a"));
    QTRY_COMPARE(m_f->state(Names), QStringLiteral("搜索失败"));
    QVERIFY(m_f->status().startsWith(QStringLiteral("文件名搜索失败：")));
    QVERIFY(m_f->statusIsError());
    m_f->choose(Contents);
    m_f->search(Contents, QStringLiteral("a"));
    QTRY_VERIFY(m_f->status().startsWith(QStringLiteral("全文搜索失败：")));

    // With the cause gone, trying again is one click.
    QVERIFY(QFile::remove(m_f->databasePath()));
    QTest::mouseClick(m_f->inView<QPushButton>(Contents, "EmptyStateButton"), Qt::LeftButton);
    QTRY_COMPARE(m_f->state(Contents), QStringLiteral("没有找到匹配的文件"));
}

void TestFileSearchPage::searchesATargetSystem()
{
    m_f->file(QStringLiteral("a.txt"), "needle");
    m_f->useMode(AppMode::livecd);
    m_f->open();
    QCOMPARE(m_f->status(), QStringLiteral("恢复环境模式下请先点击'构建索引'。"));
    QVERIFY(!m_f->child<QWidget>("FirstUseCard")->isVisible());
    QVERIFY(m_f->build());
    QCOMPARE(readIndex(m_f->databasePath()).keys(), list("/home/user/a.txt"));
    QVERIFY(!m_f->page()->findChild<IndexWatcher *>()->isRunning());
    m_f->search(Names, QStringLiteral("a.t"));
    QTRY_COMPARE(m_f->rows(Names), list("a.txt"));
    QCOMPARE(m_f->results(Names)->model()->index(0, 1).data().toString(),
             m_f->home(QStringLiteral("a.txt")));

    ModalDriver driver([](QWidget *dialog) {
        QTest::mouseClick(dialog->findChild<QPushButton *>(QStringLiteral("IndexSettingsAccept")),
                          Qt::LeftButton);
    });
    m_f->click("IndexSettingsButton");
    QVERIFY(driver.handled());
    QCOMPARE(m_f->setting(QStringLiteral("search/indexRoots")).toStringList(), list("/home/user"));
    QCOMPARE(m_f->setting(QStringLiteral("search/inotifyMaxDepth")).toInt(), -1);
    QVERIFY(QFileInfo::exists(m_f->home(QStringLiteral(".config/morvane/morvane_livecd.conf"))));
    QVERIFY(!QFileInfo::exists(m_f->configPath()));
}

void TestFileSearchPage::staysHarmlessWithoutATarget()
{
    m_f->useMode(AppMode::livecd);
    const QString message = QStringLiteral("未检测到目标系统挂载目录 /live_target");
    m_f->paths() = core::controllers::search::SearchRuntimePaths();
    m_f->paths().mode = AppMode::livecd;
    m_f->paths().errorMessage = message;
    m_f->open();
    QCOMPARE(m_f->status(), message);
    QVERIFY(m_f->statusIsError());
    QCOMPARE(m_f->stats(), QStringLiteral("索引状态：不可用"));
    for (const auto view : {Names, Contents}) {
        QCOMPARE(m_f->state(view), QStringLiteral("文件搜索不可用"));
        QVERIFY(!m_f->inView<QComboBox>(view, "SizeFilter")->isEnabled());
        QVERIFY(!m_f->inView<QWidget>(view, "KeywordTagInput")->isEnabled());
    }
    QVERIFY(!m_f->child<QLineEdit>("NameSearchEdit")->isEnabled());
    QVERIFY(!m_f->child<QLineEdit>("ContentSearchEdit")->isEnabled());
    // The workers have a file to ask all the same.
    QTRY_VERIFY(
        QFileInfo::exists(QDir::tempPath() + QStringLiteral("/morvane_search_disabled.db")));

    for (const char *button : {"BuildIndexButton", "IndexSettingsButton"}) {
        QStringList texts;
        ModalDriver driver(support::presses("NoticeOkBtn", &texts));
        m_f->click(button);
        QVERIFY(driver.handled());
        QVERIFY(texts.value(0).startsWith(QStringLiteral("无法")));
        QCOMPARE(texts.value(1), message);
    }
}

QTEST_MAIN(TestFileSearchPage)
#include "tst_filesearchpage.moc"
