#include "core/controllers/upgrade/upgradecontroller.h"
#include "support/dialogsteps.h"
#include "support/updateserver.h"
#include "ui/pages/aboutpage.h"
#include "ui/pages/auxiliarytoolspage.h"
#include "ui/pages/forcedupdatedialog.h"
#include "ui/pages/globalsettingspage.h"
#include "ui/pages/helpguidepage.h"

#include <QClipboard>
#include <QComboBox>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QSettings>
#include <QTextBrowser>
#include <QTreeWidget>
#include <QtTest>

using core::AppMode;
using core::controllers::upgrade::UpgradeController;
using core::controllers::upgrade::UpgradeEnvironment;
using support::ModalDriver;
using support::presses;

namespace {

template <typename Widget>
Widget *part(const QWidget &page, const char *objectName)
{
    return page.findChild<Widget *>(QLatin1String(objectName));
}

void click(const QWidget &page, const char *objectName)
{
    QTest::mouseClick(part<QPushButton>(page, objectName), Qt::LeftButton);
}

QString write(const QTemporaryDir &dir, const char *name, const QByteArray &content)
{
    QFile file(dir.filePath(QLatin1String(name)));
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size()
               ? file.fileName()
               : QString();
}

} // namespace

class TestSettingsPages : public QObject
{
    Q_OBJECT

private slots:
    void helpLeadsToItsSections();
    void helpTellsWhatIsMissing();
    void toolsAreCopiedAndNeverRun();
    void aboutShowsTheAgreement();
    void savingAppliesTheSidebarAtOnce();
    void updateCardFollowsTheController();
    void forcedUpdateCannotBeDismissed();

private:
    QTemporaryDir m_dir;
};

void TestSettingsPages::helpLeadsToItsSections()
{
    QByteArray guide = "# 一\n## 一之一\n";
    for (int i = 0; i < 200; ++i)
        guide += "文\n";
    guide += "### 一之二\n# 二\n";
    HelpGuidePage page(nullptr, write(m_dir, "guide.md", guide));
    page.resize(900, 600);
    page.show();
    auto *contents = part<QTreeWidget>(page, "HelpGuideContents");
    auto *text = part<QTextBrowser>(page, "HelpGuideText");
    QCOMPARE(contents->topLevelItemCount(), 2);
    QTreeWidgetItem *inner = contents->topLevelItem(0)->child(0)->child(0);
    QCOMPARE(inner->text(0), QStringLiteral("一之二"));
    QTest::mouseClick(contents->viewport(), Qt::LeftButton, Qt::NoModifier,
                      contents->visualItemRect(inner).center());
    QTRY_VERIFY(text->verticalScrollBar()->value() > 0);

    click(page, "AuxiliaryToolsButton");
    auto *tools = page.findChild<AuxiliaryToolsPage *>();
    QVERIFY(tools->isVisible() && !text->isVisible());
    click(*tools, "BackToHelpButton");
    QVERIFY(text->isVisible());
}

void TestSettingsPages::helpTellsWhatIsMissing()
{
    const QString path = m_dir.filePath(QStringLiteral("no.md"));
    HelpGuidePage page(nullptr, path);
    page.show();
    const QString shown = part<QTextBrowser>(page, "HelpGuideText")->toPlainText();
    QVERIFY(shown.contains(QStringLiteral("未找到帮助文件")) && shown.contains(path));
    QCOMPARE(part<QTreeWidget>(page, "HelpGuideContents")->topLevelItemCount(), 0);
}

void TestSettingsPages::toolsAreCopiedAndNeverRun()
{
    AuxiliaryToolsPage page;
    const QList<QFrame *> cards = page.findChildren<QFrame *>(QStringLiteral("AuxToolCard"));
    QCOMPARE(cards.size(), 9);
    for (const QFrame *card : cards) {
        QStringList texts;
        const ModalDriver driver(presses("NoticeOkBtn", &texts));
        QTest::mouseClick(card->findChild<QPushButton *>(), Qt::LeftButton);
        const QString command = card->property("command").toString();
        QVERIFY(driver.handled());
        const QString message = texts.value(1);
        QCOMPARE(QGuiApplication::clipboard()->text(), command);
        QVERIFY(message.contains(QStringLiteral("已复制到剪贴板")));
        QCOMPARE(message.contains(QStringLiteral("改写设备上的数据")),
                 command.contains(QLatin1String("f3probe")) ||
                     command.contains(QLatin1String("fsck")) ||
                     command.contains(QLatin1String("xfs_repair")));
    }
}

void TestSettingsPages::aboutShowsTheAgreement()
{
    QCoreApplication::setApplicationVersion(QStringLiteral("9.8.7"));
    const AboutPage page(nullptr, write(m_dir, "about.md", "**协议**\n"));
    QCoreApplication::setApplicationVersion(QString());
    QCOMPARE(part<QLabel>(page, "AboutProgramVersion")->text(), QStringLiteral("程序版本 9.8.7"));
    QCOMPARE(part<QPlainTextEdit>(page, "AboutProtocolText")->toPlainText(),
             QStringLiteral("**协议**\n"));
    QCOMPARE(part<QLabel>(page, "AboutVersion")->text(), QStringLiteral("v0.1.0"));
    const AboutPage missing(nullptr, QStringLiteral("/no/such/file"));
    QCOMPARE(part<QPlainTextEdit>(missing, "AboutProtocolText")->toPlainText(),
             QStringLiteral("未找到使用协议文件。\n\n请在程序可执行文件同级目录放置："
                            "about_protocol.md\n当前路径：/no/such/file"));
}

void TestSettingsPages::savingAppliesTheSidebarAtOnce()
{
    const QString path = write(m_dir, "morvane.conf", "[ui]\nfontScale=1.25\n[other]\nkey=1\n");
    GlobalSettingsPage page(nullptr, AppMode::normal, nullptr, path);
    QSignalSpy pinned(&page, &GlobalSettingsPage::sidebarPinnedChanged);
    auto *scale = part<QComboBox>(page, "FontScaleCombo");
    QCOMPARE(scale->currentText(), QStringLiteral("125%"));
    part<QComboBox>(page, "SidebarModeCombo")->setCurrentIndex(1);
    click(page, "SaveSettingsButton"); // No question: a dialog would hang the test.
    QCOMPARE(pinned, (QList<QVariantList>{{true}}));

    scale->setCurrentIndex(0);
    QStringList texts;
    const ModalDriver driver(presses("NoticeCancelBtn", &texts));
    click(page, "SaveSettingsButton");
    QCOMPARE(texts.value(0), QStringLiteral("设置已保存"));
    const QSettings stored(path, QSettings::IniFormat);
    QCOMPARE(stored.value(QStringLiteral("ui/fontScale")).toDouble(), 1.0);
    QCOMPARE(stored.value(QStringLiteral("ui/sidebarMode")).toString(), QStringLiteral("pinned"));
    QCOMPARE(stored.value(QStringLiteral("other/key")).toInt(), 1);
}

void TestSettingsPages::updateCardFollowsTheController()
{
    const GlobalSettingsPage bare(nullptr, AppMode::normal);
    QCOMPARE(part<QLabel>(bare, "UpgradeStatusLabel")->text(), QStringLiteral("更新功能不可用"));
    QVERIFY(!part<QPushButton>(bare, "CheckUpdateButton")->isEnabled());

    testsupport::UpdateServer server;
    QVERIFY(server.start());
    server.answerCheck({{QStringLiteral("latestVersion"), QStringLiteral("9.1")},
                        {QStringLiteral("updateAvailable"), true},
                        {QStringLiteral("publishedAt"), QStringLiteral("2026-03-04T12:00:00Z")}});
    UpgradeEnvironment environment;
    environment.statePath = m_dir.filePath(QStringLiteral("state.json"));
    environment.updateServer = server.url();
    UpgradeController controller(AppMode::livecd, nullptr, environment);
    GlobalSettingsPage page(&controller, AppMode::livecd);
    QCOMPARE(part<QPushButton>(page, "UpgradePrimaryButton")->text(), QStringLiteral("下载更新"));
    QCOMPARE(part<QLabel>(page, "LatestVersionLabel")->text(), QStringLiteral("暂无"));
    QStringList texts;
    const ModalDriver driver(presses("NoticeOkBtn", &texts));
    click(page, "CheckUpdateButton");
    QCOMPARE(part<QLabel>(page, "UpgradeStatusLabel")->text(), QStringLiteral("正在检查更新"));
    QTRY_COMPARE(texts.value(1), QStringLiteral("发现新版本 9.1。"));
    QCOMPARE(part<QLabel>(page, "LatestVersionLabel")->text(), QStringLiteral("9.1 (2026-03-04)"));
}

void TestSettingsPages::forcedUpdateCannotBeDismissed()
{
    ForcedUpdateDialog dialog;
    dialog.open();
    auto *bar = part<QProgressBar>(dialog, "ForcedUpdateBar");
    auto *stage = part<QLabel>(dialog, "ForcedUpdateStage");
    auto *retry = part<QPushButton>(dialog, "ForcedUpdateRetry");
    QCOMPARE(stage->text(), QStringLiteral("正在检查更新..."));
    QCOMPARE(bar->maximum(), 0);
    const auto staysOpen = [&dialog] {
        QTest::keyClick(&dialog, Qt::Key_Escape);
        dialog.close();
        return dialog.isVisible();
    };
    dialog.setStageText(QString(), false);
    QCOMPARE(stage->text(), QStringLiteral("正在处理更新任务..."));
    dialog.setDownloadProgress(std::numeric_limits<qint64>::max() / 2,
                               std::numeric_limits<qint64>::max());
    QCOMPARE(bar->value(), 50);
    dialog.setDownloadProgress(300, 100);
    QCOMPARE(bar->value(), 100);
    dialog.setDownloadProgress(3, 0);
    QCOMPARE(bar->maximum(), 0);
    QVERIFY(staysOpen() && retry->isHidden());

    dialog.showFailureState(QString());
    QCOMPARE(stage->text(), QStringLiteral("更新失败，请重试。"));
    QCOMPARE(bar->format(), QStringLiteral("失败"));
    QVERIFY(staysOpen());
    QSignalSpy retried(&dialog, &ForcedUpdateDialog::retryRequested);
    QSignalSpy left(&dialog, &ForcedUpdateDialog::exitRequested);
    click(dialog, "ForcedUpdateRetry");
    click(dialog, "ForcedUpdateExit");
    QCOMPARE(retried.size() + left.size(), 2);

    dialog.showPreparingExitState(QString());
    QCOMPARE(stage->text(), QStringLiteral("更新程序已启动，应用即将退出。"));
    QVERIFY(staysOpen() && retry->isHidden());
    dialog.setAllowClose(true);
    QVERIFY(!staysOpen());
}

QTEST_MAIN(TestSettingsPages)
#include "tst_settingspages.moc"
