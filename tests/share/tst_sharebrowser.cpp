#include "support/shareharness.h"
#include "support/webdriver.h"

#include <QDir>
#include <QtTest>

#include <memory>

/// The web pages in a real browser.
namespace {

/// What CTest counts as skipped.
constexpr int kSkipped = 77;
constexpr int kBigUpload = 24 << 20;
constexpr int kMinTarget = 40;
constexpr int kMaxPage = 20 * 1024;
/// A folder for pictures of the pages, for whoever wants to look at them.
const char kPictures[] = "MORVANE_PICTURES";

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(none)");
}

} // namespace

class TestShareBrowser : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase() { m_browser.reset(); }
    void logsInWalksAndDownloads();
    void uploads();
    void refusedUploadSaysWhy();
    void errorPageLeadsBack();
    void fits_data();
    void fits();

private:
    QString url(const char *path) const
    {
        return QStringLiteral("http://127.0.0.1:%1%2")
            .arg(m_share->port())
            .arg(QLatin1String(path));
    }
    void choose(const QString &path) { m_browser->type("#upload-file", path); }
    /// Keeps every text that the upload's status shows, also across the page's reload.
    void watchStatus();
    QString watched()
    {
        return m_browser->run(QStringLiteral("return sessionStorage.seen")).toString();
    }

    TempTree m_home;
    std::unique_ptr<WebDriver> m_browser;
    std::unique_ptr<ShareHarness> m_share;
};

void TestShareBrowser::initTestCase()
{
    m_home.dir("saved");
    m_browser = std::make_unique<WebDriver>();
    QVERIFY2(m_browser->start(m_home.dir("profile"), m_home.path("saved")),
             qPrintable(m_browser->error()));
}

void TestShareBrowser::init()
{
    m_share = std::make_unique<ShareHarness>();
    TempTree &tree = m_share->tree();
    tree.file("d/说明 & 价格.txt", "你好");
    tree.file("d/old.txt", "old");
    tree.file(
        "d/照片/2026 年/一张名字特别特别特别长的照片，在窄屏幕上也要能够看得完整而不会撑破页面.jpg",
        QByteArray(3 << 20, 'j'));
    ShareSession session = ShareHarness::session(QStringLiteral("pw"));
    session.expiresAt = QDateTime::currentMSecsSinceEpoch() + 7200000;
    m_share->add(session, QStringLiteral("密码+1&="));
    m_share->addRoot(session.id, QStringLiteral("p"), tree.path("d"), QStringLiteral("资料"));
    session.id = QStringLiteral("up");
    session.accessMode = QStringLiteral("upload");
    m_share->add(session);
    m_share->addRoot(session.id, QStringLiteral("u"), tree.path("d"), QStringLiteral("收件箱"));
    m_browser->preferDark(false);
    m_browser->resize(QSize(1280, 800));
}

void TestShareBrowser::cleanup()
{
    m_browser->open(QStringLiteral("about:blank"));
    m_share.reset();
}

void TestShareBrowser::logsInWalksAndDownloads()
{
    m_browser->open(url("/s/pw/"));
    QCOMPARE(m_browser->text("h1"), QStringLiteral("需要密码"));
    m_browser->type("input[name=password]", QStringLiteral("密码"));
    m_browser->click("button");
    QTRY_COMPARE(m_browser->text(".err"), QStringLiteral("密码错误，请重试"));
    m_browser->type("input[name=password]", QStringLiteral("密码+1&="));
    m_browser->click("button");
    QTRY_COMPARE(m_browser->text("h1"), QStringLiteral("🔗 共享文件"));
    QVERIFY(m_browser->text(".remain").startsWith(QStringLiteral("剩余时间: 01:59:")));

    m_browser->click("tbody a");
    QTRY_COMPARE(m_browser->text(".crumbs"), QStringLiteral("首页 / 资料"));
    m_browser->click("tbody a");
    QTRY_COMPARE(m_browser->text(".crumbs"), QStringLiteral("首页 / 资料 / 照片"));
    m_browser->click("tbody tr:nth-child(2) a");
    QTRY_COMPARE(m_browser->text(".crumbs"), QStringLiteral("首页 / 资料 / 照片 / 2026 年"));
    m_browser->click("tbody a");
    QTRY_COMPARE(m_browser->text(".crumbs"), QStringLiteral("首页 / 资料 / 照片"));
    m_browser->click(".crumbs a:nth-child(2)");
    QTRY_COMPARE(m_browser->text(".crumbs"), QStringLiteral("首页 / 资料"));

    m_browser->click("tbody tr:nth-child(3) a");
    const QString saved = m_home.path("saved/说明 & 价格.txt");
    QTRY_COMPARE(contentOf(saved), QByteArray("你好"));
    QVERIFY2(m_browser->error().isEmpty(), qPrintable(m_browser->error()));
}

void TestShareBrowser::watchStatus()
{
    m_browser->run(QStringLiteral(
        "sessionStorage.seen = '';"
        "var status = document.getElementById('upload-status');"
        "new MutationObserver(function () {"
        "  sessionStorage.seen += status.className + ':' + status.textContent + '\\n';"
        "}).observe(status, {childList: true, attributes: true});"));
}

void TestShareBrowser::uploads()
{
    const QByteArray body(kBigUpload, 'n');
    m_home.file("新 100%.bin", body);
    const QString target = m_share->tree().path("d/新 100%.bin");
    m_browser->open(url("/s/up/u/"));
    watchStatus();
    choose(m_home.path("新 100%.bin"));
    QTRY_VERIFY_WITH_TIMEOUT(watched().contains(QStringLiteral("status ok:上传成功")), 20000);
    const QString seen = watched();
    QVERIFY(seen.startsWith(QStringLiteral("status:正在检查同名文件：新 100%.bin\n")));
    QVERIFY2(seen.contains(QStringLiteral("status:正在上传：新 100%.bin（100%）\n")),
             qPrintable(seen));
    QVERIFY(contentOf(target) == body);
    // The page has come anew.
    QTRY_VERIFY(m_browser->text("tbody").contains(QStringLiteral("新 100%.bin")));
    QVERIFY(m_browser->text("tbody").contains(QStringLiteral("24.0 MB")));

    m_home.file("新 100%.bin", "newer");
    for (const bool yes : {false, true}) {
        watchStatus();
        choose(m_home.path("新 100%.bin"));
        QTRY_COMPARE(m_browser->question(), QStringLiteral("当前目录已存在同名文件，是否覆盖？"));
        m_browser->answer(yes);
        QTRY_VERIFY(watched().contains(yes ? QStringLiteral("status ok:文件已覆盖")
                                           : QStringLiteral("status:已取消上传。")));
        QCOMPARE(contentOf(target).size(), yes ? 5 : kBigUpload);
    }
}

void TestShareBrowser::refusedUploadSaysWhy()
{
    m_browser->open(url("/s/up/u/"));
    choose(m_home.file("照片"));
    const QString taken = QStringLiteral("当前目录中已有同名文件夹，无法覆盖。");
    QTRY_COMPARE(m_browser->text(".status.error"), taken);
    // Refused while a large body is on its way: the reason comes through all the same.
    choose(m_home.file("old.txt", QByteArray(kBigUpload, 'n')));
    QTRY_VERIFY(!m_browser->question().isEmpty());
    m_share->tree().remove("d/old.txt");
    m_share->tree().dir("d/old.txt");
    m_browser->answer(true);
    QTRY_COMPARE_WITH_TIMEOUT(
        m_share->log(QStringLiteral("up")).filter(QStringLiteral("upload_conflict")).size(), 1,
        20000);
    QTRY_COMPARE(m_browser->text(".status.error"), taken);
    QTRY_VERIFY(m_browser->run(QStringLiteral("return !document.querySelector('button').disabled"))
                    .toBool());
}

void TestShareBrowser::errorPageLeadsBack()
{
    m_browser->open(url("/s/up/u/nothing"));
    QCOMPARE(m_browser->text(".code"), QStringLiteral("403"));
    m_browser->click("#back");
    QTRY_COMPARE(m_browser->text("h1"), QStringLiteral("🔗 共享文件"));

    m_share->setStatus(QStringLiteral("up"), QStringLiteral("stopped"));
    m_browser->open(url("/s/up/"));
    QCOMPARE(m_browser->text(".muted"), QStringLiteral("该共享已停止。"));
    QVERIFY(
        m_browser->run(QStringLiteral("return document.getElementById('back').hidden")).toBool());
    // The page looks again and finds nothing new.
    m_browser->run(QStringLiteral("window.looks = 0;"
                                  "const ask = window.fetch;"
                                  "window.fetch = (...what) => ask(...what).then(answer => {"
                                  "  ++window.looks;"
                                  "  return answer;"
                                  "});"
                                  "window.dispatchEvent(new Event('pageshow'))"));
    QTRY_VERIFY(m_browser->run(QStringLiteral("return window.looks")).toInt() > 0);
    QCOMPARE(m_browser->text(".code"), QStringLiteral("410"));
    m_share->setStatus(QStringLiteral("up"), QStringLiteral("active"));
    m_browser->run(QStringLiteral("window.dispatchEvent(new Event('pageshow'))"));
    QTRY_COMPARE(m_browser->text("h1"), QStringLiteral("🔗 共享文件"));
}

void TestShareBrowser::fits_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<bool>("dark");
    for (const QSize size : {QSize(360, 740), QSize(1280, 800), QSize(1920, 1080)})
        for (const bool dark : {false, true})
            QTest::addRow("%d %s", size.width(), dark ? "dark" : "light") << size << dark;
}

void TestShareBrowser::fits()
{
    QFETCH(QSize, size);
    QFETCH(bool, dark);
    m_browser->resize(size);
    m_browser->preferDark(dark);
    const struct
    {
        const char *name;
        const char *path;
    } pages[] = {{"login", "/s/pw/"},
                 {"roots", "/s/up/"},
                 {"list", "/s/up/u/"},
                 {"deep", "/s/up/u/%E7%85%A7%E7%89%87/2026%20%E5%B9%B4/"},
                 {"error", "/s/up/u/nothing"}};
    const QDir pictures(qEnvironmentVariable(kPictures));
    for (const auto &page : pages) {
        m_browser->open(url(page.path));
        const auto number = [this](const char *script) {
            return m_browser->run(QStringLiteral("return ") + QLatin1String(script)).toDouble(-1);
        };
        QCOMPARE(number("document.documentElement.scrollWidth"), double(size.width()));
        QVERIFY2(number("Math.min.apply(null, Array.from(document.querySelectorAll('a, button, "
                        "input[type=password]')).filter(e => e.offsetParent).map(e => "
                        "e.getBoundingClientRect().height))") >= kMinTarget,
                 page.name);
        QVERIFY2(number("performance.getEntriesByType('navigation')[0].decodedBodySize") < kMaxPage,
                 page.name);
        QCOMPARE(
            number("performance.getEntriesByType('resource').filter(e => "
                   "e.name.startsWith('http') && new URL(e.name).host !== location.host).length"),
            0.0);
        const double red =
            number("parseInt(getComputedStyle(document.body).backgroundColor.slice(4))");
        QCOMPARE(red < 128, dark);
        if (qEnvironmentVariableIsSet(kPictures))
            QVERIFY(m_browser->save(
                pictures.filePath(QStringLiteral("web-%1-%2%3.png")
                                      .arg(QLatin1String(page.name))
                                      .arg(size.width())
                                      .arg(dark ? QStringLiteral("-dark") : QString()))));
    }
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    if (!WebDriver::isInstalled()) {
        qWarning("SKIPPED: the web pages need chromium and chromedriver (chromium-driver)");
        return kSkipped;
    }
    TestShareBrowser test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_sharebrowser.moc"
