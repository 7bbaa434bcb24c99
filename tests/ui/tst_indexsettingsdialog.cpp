#include "support/dialogsteps.h"
#include "support/temptree.h"
#include "ui/pages/indexsettingsdialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QListWidget>
#include <QPushButton>
#include <QTest>

using core::AppMode;
using core::controllers::search::SearchRuntimePaths;
using support::ModalDriver;
using Settings = IndexSettingsDialog::Settings;

Q_DECLARE_METATYPE(Settings)

namespace {

QStringList words(const char *text)
{
    return QString::fromUtf8(text).split(QLatin1Char(' '));
}

} // namespace

class TestIndexSettingsDialog : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void givesBackWhatItWasGiven_data();
    void givesBackWhatItWasGiven();
    void gathersTheExtensionsOfCheckedGroups_data();
    void gathersTheExtensionsOfCheckedGroups();
    void offersTheChoices();
    void addsAndRemovesDirectories();
    void refusesDirectoriesOutsideTheTarget();
    void endsByItsButtons();
    void fitsSmallScreens_data();
    void fitsSmallScreens();

private:
    void open(AppMode mode);
    template <typename T>
    T *child(const char *name) const
    {
        return m_dialog->findChild<T *>(QString::fromLatin1(name));
    }
    void click(const char *button)
    {
        QTest::mouseClick(child<QPushButton>(button), Qt::LeftButton);
    }
    /// Presses "添加" and answers the folder dialog. Returns that dialog's title.
    QString addDirectory(const char *button, const QString &directory);

    QScopedPointer<TempTree> m_tree;
    QScopedPointer<IndexSettingsDialog> m_dialog;
};

void TestIndexSettingsDialog::init()
{
    m_dialog.reset();
    m_tree.reset(new TempTree);
}

void TestIndexSettingsDialog::open(AppMode mode)
{
    SearchRuntimePaths paths;
    paths.mode = mode;
    paths.targetRoot = m_tree->dir(QStringLiteral("target"));
    paths.primaryHome = m_tree->dir(QStringLiteral("target/home/u"));
    m_dialog.reset(new IndexSettingsDialog(mode, paths));
    m_dialog->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_dialog.data()));
}

QString TestIndexSettingsDialog::addDirectory(const char *button, const QString &directory)
{
    QStringList titles;
    ModalDriver driver(support::choosesFolder(directory, &titles));
    click(button);
    return driver.handled() ? titles.value(0) : QStringLiteral("no folder dialog");
}

void TestIndexSettingsDialog::givesBackWhatItWasGiven_data()
{
    QTest::addColumn<Settings>("given");
    Settings settings;
    settings.roots = words("/a /数据/资料");
    settings.excludeDirs = words(".git /a/b");
    settings.ftsExtensions = words("rst xml json log ini conf yaml yml toml sql");
    settings.autoRebuild = false;
    settings.inotifyMaxDepth = 0;
    settings.incrementalIntervalHours = 12;
    settings.moreTextTypes = false;
    settings.indexedTextBytes = 262144;
    QTest::newRow("choices") << settings;
    settings.inotifyMaxDepth = 4;
    settings.incrementalIntervalHours = 7;
    QTest::newRow("values that no choice offers") << settings;
    settings.inotifyMaxDepth = -1;
    settings.incrementalIntervalHours = 0;
    settings.autoRebuild = true;
    settings.indexedTextBytes = 16 * 1024 * 1024;
    QTest::newRow("not watched") << settings;
    settings.roots.clear();
    settings.excludeDirs.clear();
    settings.ftsExtensions.clear();
    QTest::newRow("empty") << settings;
}

void TestIndexSettingsDialog::givesBackWhatItWasGiven()
{
    QFETCH(Settings, given);
    open(AppMode::normal);
    // A second call replaces what the first one filled in.
    Settings earlier;
    earlier.roots = words("/x");
    earlier.ftsExtensions = words("py doc");
    m_dialog->setSettings(earlier);
    m_dialog->setSettings(given);
    const Settings result = m_dialog->settings();
    QCOMPARE(result.roots, given.roots);
    QCOMPARE(result.excludeDirs, given.excludeDirs);
    QCOMPARE(result.ftsExtensions, given.ftsExtensions);
    QCOMPARE(result.moreTextTypes, given.moreTextTypes);
    QCOMPARE(result.indexedTextBytes, given.indexedTextBytes);
    QCOMPARE(result.autoRebuild, given.autoRebuild);
    QCOMPARE(result.inotifyMaxDepth, given.inotifyMaxDepth);
    QCOMPARE(result.incrementalIntervalHours, given.incrementalIntervalHours);
}

void TestIndexSettingsDialog::gathersTheExtensionsOfCheckedGroups_data()
{
    QTest::addColumn<QString>("box");
    QTest::addColumn<QString>("anyOf");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("extensions");
    const auto row = [](const char *box, const char *anyOf, const char *title,
                        const char *extensions) {
        QTest::newRow(box) << QString::fromLatin1(box) << QString::fromLatin1(anyOf)
                           << QString::fromUtf8(title).arg(
                                  QStringLiteral("*.") +
                                  words(extensions).join(QStringLiteral(", *.")))
                           << words(extensions);
    };
    row("DocumentTypesBox", "EPUB", "办公文档  —  %1",
        "doc docx xls xlsx ppt pptx pdf rtf csv txt odt ods odp ofd epub wps et dps md");
    row("TextTypesBox", "toml", "纯文本/配置  —  %1",
        "rst xml json log ini conf yaml yml toml sql");
    row("CodeTypesBox", "html", "代码文件  —  %1",
        "sh py js ts java jsx cpp c h hpp go rs rb php lua tsx html");
}

void TestIndexSettingsDialog::gathersTheExtensionsOfCheckedGroups()
{
    QFETCH(QString, box);
    QFETCH(QString, anyOf);
    QFETCH(QStringList, extensions);
    open(AppMode::normal);
    Settings settings;
    settings.ftsExtensions = QStringList(anyOf);
    m_dialog->setSettings(settings);
    QCOMPARE(m_dialog->settings().ftsExtensions, extensions);
    auto *check = m_dialog->findChild<QCheckBox *>(box);
    QTEST(check->text(), "text");
    QVERIFY(check->isChecked());
    // Also a click on the last line of the wrapped text.
    QTest::mouseClick(check, Qt::LeftButton, Qt::NoModifier,
                      QPoint(check->width() / 2, check->height() - 2));
    QCOMPARE(m_dialog->settings().ftsExtensions, QStringList());
}

void TestIndexSettingsDialog::offersTheChoices()
{
    open(AppMode::normal);
    const auto items = [this](const char *name) {
        QString text;
        const auto *combo = child<QComboBox>(name);
        for (int i = 0; i < combo->count(); ++i)
            text += QStringLiteral("%1=%2 ").arg(combo->itemText(i), combo->itemData(i).toString());
        return text.trimmed();
    };
    QCOMPARE(items("WatchDepthCombo"), QStringLiteral("3 层=3 5 层=5 8 层=8 10 层=10 无限=0"));
    QCOMPARE(items("IncrementalIntervalCombo"), QStringLiteral("6h=6 12h=12 24h=24 手动=0"));
    QVERIFY(child<QComboBox>("WatchDepthCombo")->isEnabled());
    QTest::keyClick(child<QComboBox>("WatchDepthCombo"), Qt::Key_End);
    QTest::keyClick(child<QComboBox>("IncrementalIntervalCombo"), Qt::Key_Home);
    QTest::mouseClick(child<QCheckBox>("AutoRebuildBox"), Qt::LeftButton, Qt::NoModifier,
                      QPoint(8, 10));
    QCOMPARE(m_dialog->settings().inotifyMaxDepth, 0);
    QCOMPARE(m_dialog->settings().incrementalIntervalHours, 6);
    QCOMPARE(m_dialog->settings().autoRebuild, false);

    open(AppMode::livecd);
    QVERIFY(!child<QComboBox>("WatchDepthCombo")->isEnabled());
}

void TestIndexSettingsDialog::addsAndRemovesDirectories()
{
    open(AppMode::normal);
    Settings settings;
    settings.roots = words("/a /b /c");
    m_dialog->setSettings(settings);
    const QString folder = m_tree->dir(QStringLiteral("目 录"));
    QCOMPARE(addDirectory("IndexRootsAdd", folder + QLatin1Char('/')),
             QStringLiteral("选择索引根目录"));
    QCOMPARE(addDirectory("IndexRootsAdd", folder), QStringLiteral("选择索引根目录"));
    QCOMPARE(addDirectory("ExcludeDirsAdd", folder), QStringLiteral("选择排除目录"));
    QCOMPARE(m_dialog->settings().roots, QStringList(words("/a /b /c") << folder));
    const QString blank = m_tree->dir(QStringLiteral("目 录 "));
    QCOMPARE(addDirectory("ExcludeDirsAdd", blank), QStringLiteral("选择排除目录"));
    QCOMPARE(m_dialog->settings().excludeDirs, QStringList({folder, blank}));

    auto *list = child<QListWidget>("IndexRootsList");
    QVERIFY(!child<QPushButton>("IndexRootsRemove")->isEnabled());
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier,
                      list->visualItemRect(list->item(0)).center());
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::ControlModifier,
                      list->visualItemRect(list->item(2)).center());
    QVERIFY(child<QPushButton>("IndexRootsRemove")->isEnabled());
    click("IndexRootsRemove");
    QCOMPARE(m_dialog->settings().roots, QStringList({QStringLiteral("/b"), folder}));
    QVERIFY(!child<QPushButton>("IndexRootsRemove")->isEnabled());
}

void TestIndexSettingsDialog::refusesDirectoriesOutsideTheTarget()
{
    open(AppMode::livecd);
    const QString inside = m_tree->path(QStringLiteral("target/home/u"));
    Settings settings;
    settings.roots = QStringList(inside);
    settings.excludeDirs = words(".git");
    m_dialog->setSettings(settings);
    QCOMPARE(m_dialog->settings().excludeDirs, words(".git"));
    QCOMPARE(addDirectory("IndexRootsAdd", m_tree->path(QStringLiteral("target/home"))),
             QStringLiteral("选择索引根目录"));

    // A neighbour whose name begins like the target's is outside as well.
    QStringList texts;
    QTimer notice;
    connect(&notice, &QTimer::timeout, this, [&] {
        QWidget *dialog = QApplication::activeModalWidget();
        if (dialog && dialog->findChild<QPushButton *>(QStringLiteral("NoticeOkBtn")))
            support::presses("NoticeOkBtn", &texts)(dialog);
    });
    notice.start(20);
    for (const QString &name : {QStringLiteral("targetx"), QStringLiteral("other")}) {
        texts.clear();
        addDirectory("IndexRootsAdd", m_tree->dir(name));
        QCOMPARE(texts, QStringList({QStringLiteral("目录不可用"),
                                     QStringLiteral("恢复环境模式下只能索引 /live_target "
                                                    "里的目标系统目录。")}));
    }
    QCOMPARE(m_dialog->settings().roots,
             QStringList({inside, m_tree->path(QStringLiteral("target/home"))}));
}

void TestIndexSettingsDialog::endsByItsButtons()
{
    open(AppMode::normal);
    QCOMPARE(m_dialog->windowTitle(), QStringLiteral("索引设置"));
    QVERIFY(m_dialog->isModal());
    QCOMPARE(child<QPushButton>("IndexSettingsAccept")->text(), QStringLiteral("确定"));
    click("IndexSettingsAccept");
    QCOMPARE(m_dialog->result(), int(QDialog::Accepted));
    QVERIFY(!m_dialog->isVisible());
    m_dialog->show();
    click("IndexSettingsCancel");
    QCOMPARE(m_dialog->result(), int(QDialog::Rejected));
    m_dialog->show();
    QTest::keyClick(m_dialog.data(), Qt::Key_Escape);
    QVERIFY(!m_dialog->isVisible());
}

void TestIndexSettingsDialog::fitsSmallScreens_data()
{
    QTest::addColumn<int>("windowHeight");
    QTest::newRow("small") << 700;
    QTest::newRow("large") << 1080;
}

void TestIndexSettingsDialog::fitsSmallScreens()
{
    QFETCH(int, windowHeight);
    QWidget window;
    window.resize(1024, windowHeight);
    IndexSettingsDialog dialog(AppMode::normal, SearchRuntimePaths(), &window);
    QVERIFY(dialog.height() < windowHeight);
    QVERIFY(dialog.width() >= 420 && dialog.width() <= 680);
}

QTEST_MAIN(TestIndexSettingsDialog)
#include "tst_indexsettingsdialog.moc"
