#include "recoverypagesfixture.h"
#include "support/dialogsteps.h"
#include "ui/pages/shieldsettingsdialog.h"
#include "ui/pages/shieldsettingsdialog/dirtagwidget.h"

#include <QComboBox>
#include <QJsonArray>
#include <QScrollArea>
#include <QWheelEvent>

using namespace shieldsettings;
using support::ModalDriver;
using testsupport::child;
using testsupport::clickOn;
using Settings = ShieldSettingsDialog::Settings;

namespace {

QString operator""_u(const char *utf8, size_t length)
{
    return QString::fromUtf8(utf8, static_cast<int>(length));
}

QStringList tagsOf(const ShieldSettingsDialog &dialog)
{
    QStringList paths;
    for (const DirTagWidget *tag : dialog.findChildren<DirTagWidget *>()) {
        if (tag->isVisibleTo(&dialog))
            paths.append(tag->path());
    }
    return paths;
}

QList<QPushButton *> groupsOf(const ShieldSettingsDialog &dialog)
{
    return dialog.findChildren<QPushButton *>("ShieldGroupButton"_u);
}

QString limitsOf(const ShieldSettingsDialog &dialog)
{
    QStringList texts;
    for (const char *name : {"RetentionCombo", "SpaceLimitCombo", "EmergencyCombo"})
        texts.append(child<QComboBox>(&dialog, name)->currentText());
    return texts.join(QLatin1Char(' '));
}

} // namespace

class TestShieldSettings : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { testsupport::useDarkTheme(); }
    void configuration();
    void groupRule_data();
    void groupRule();
    void wholeGroupsOnly();
    void limits();
    void directories();
    void hoverNotes();
    void sizeAndButtons();
};

void TestShieldSettings::configuration()
{
    const Settings absent = fromConfig(QJsonObject());
    QCOMPARE(absent.retentionDays, 30);
    QCOMPARE(absent.maxSpaceBytes + absent.emergencyThresholdBytes, Q_INT64_C(0));
    QVERIFY(absent.protectedDirs.isEmpty() && absent.protectedExtensions.isEmpty());
    const QJsonObject config{{"protectedDirs"_u, QJsonArray{"/a"_u, "/b c"_u}},
                             {"protectedExtensions"_u, QJsonArray{"doc"_u}},
                             {"retentionDays"_u, 60},
                             {"maxSpaceBytes"_u, 53687091200.0},
                             {"emergencyThresholdBytes"_u, 5368709120.0}};
    QCOMPARE(toConfig(fromConfig(config)), config);
    QCOMPARE(toConfig(Settings()).size(), 5);
    const Settings wrong = fromConfig({{"protectedDirs"_u, QJsonArray{1, "/a"_u, QJsonValue()}},
                                       {"retentionDays"_u, "60"_u},
                                       {"maxSpaceBytes"_u, "x"_u}});
    QCOMPARE(wrong.protectedDirs, QStringList{"/a"_u});
    QCOMPARE(wrong.retentionDays, 30);
}

void TestShieldSettings::groupRule_data()
{
    QTest::addColumn<int>("group");
    QTest::addColumn<int>("needed"); // extensions that tick the group; one less does not
    const int needed[] = {9, 6, 4, 4, 7, 4};
    const int sizes[] = {17, 10, 7, 6, 13, 6};
    for (int i = 0; i < 6; ++i) {
        QCOMPARE(extensionsOf(typeGroups().at(i)).size(), sizes[i]);
        QTest::newRow(typeGroups().at(i).name.toUtf8().constData()) << i << needed[i];
    }
}

void TestShieldSettings::groupRule()
{
    QFETCH(int, group);
    QFETCH(int, needed);
    const QStringList all = extensionsOf(typeGroups().at(group));
    for (int count = 0; count <= all.size(); ++count) {
        ShieldSettingsDialog dialog;
        Settings settings;
        // From the end, in capitals, among others.
        const QStringList some = all.mid(all.size() - count) + QStringList{"other"_u};
        settings.protectedExtensions =
            some.join(QLatin1Char(',')).toUpper().split(QLatin1Char(','));
        dialog.setSettings(settings);
        QCOMPARE(groupsOf(dialog).at(group)->isChecked(), count >= needed);
        QCOMPARE(dialog.settings().protectedExtensions, count >= needed ? all : QStringList());
    }
}

void TestShieldSettings::wholeGroupsOnly()
{
    ShieldSettingsDialog dialog;
    dialog.show();
    QStringList names;
    for (QPushButton *button : groupsOf(dialog)) {
        names.append(button->text());
        QVERIFY(!button->property("exts").toString().isEmpty());
    }
    QCOMPARE(names, (QStringList{"文档"_u, "图片"_u, "视频"_u, "音频"_u, "代码"_u, "压缩包"_u}));
    QTest::mouseClick(groupsOf(dialog).at(5), Qt::LeftButton);
    QTest::mouseClick(groupsOf(dialog).at(3), Qt::LeftButton);
    QCOMPARE(dialog.settings().protectedExtensions,
             "mp3,wav,flac,aac,ogg,wma,zip,tar.gz,rar,7z,bz2,xz"_u.split(QLatin1Char(',')));
}

void TestShieldSettings::limits()
{
    ShieldSettingsDialog dialog;
    QCOMPARE(limitsOf(dialog), "7 天 1 GB 500 MB"_u);
    Settings settings;
    settings.retentionDays = 45;
    settings.maxSpaceBytes = 1;
    settings.emergencyThresholdBytes = 0;
    dialog.setSettings(settings);
    QCOMPARE(limitsOf(dialog), "7 天 1 GB 500 MB"_u);
    QCOMPARE(dialog.settings().retentionDays, 7);
    const int days[] = {7, 14, 30, 60, 90};
    const qint64 space[] = {1073741824, 5368709120, 10737418240, 21474836480, 53687091200};
    const qint64 free[] = {524288000, 1073741824, 2147483648, 5368709120, 5368709120};
    const char *shown[] = {"7 天 1 GB 500 MB", "14 天 5 GB 1 GB", "30 天 10 GB 2 GB",
                           "60 天 20 GB 5 GB", "90 天 50 GB 5 GB"};
    for (int i = 0; i < 5; ++i) {
        settings.retentionDays = days[i];
        settings.maxSpaceBytes = space[i];
        settings.emergencyThresholdBytes = free[i];
        dialog.setSettings(settings);
        QCOMPARE(limitsOf(dialog), QString::fromUtf8(shown[i]));
        QCOMPARE(dialog.settings().retentionDays, days[i]);
        QCOMPARE(dialog.settings().maxSpaceBytes, space[i]);
        QCOMPARE(dialog.settings().emergencyThresholdBytes, free[i]);
    }
    // Scrolling past a box does not turn it.
    dialog.show();
    auto *combo = child<QComboBox>(&dialog, "RetentionCombo");
    child<QPushButton>(&dialog, "ShieldSave")->setFocus();
    QWheelEvent wheel(QPointF(5, 5), combo->mapToGlobal(QPoint(5, 5)), QPoint(), QPoint(0, 120),
                      Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(combo, &wheel);
    QCOMPARE(combo->currentText(), "90 天"_u);
}

void TestShieldSettings::directories()
{
    ShieldSettingsDialog dialog;
    Settings settings;
    const QString longPath = "/home/"_u + QString(400, QLatin1Char('x'));
    settings.protectedDirs = QStringList{"/home/a"_u, longPath};
    dialog.setSettings(settings);
    dialog.show();
    QStringList titles;
    QString answer;
    dialog.setDirectoryChooser([&](QWidget *, const QString &title) {
        titles.append(title);
        return answer;
    });
    for (const QString &given : {QString(), "/home/a"_u, "/home/a/"_u}) {
        answer = given;
        clickOn(&dialog, "ShieldAddDir");
    }
    QCOMPARE(titles, (QStringList{"选择保护目录"_u, "选择保护目录"_u, "选择保护目录"_u}));
    const QStringList three{"/home/a"_u, longPath, "/home/a/"_u}; // exact comparison
    QCOMPARE(tagsOf(dialog), three);
    QCOMPARE(dialog.settings().protectedDirs, three);
    for (const DirTagWidget *tag : dialog.findChildren<DirTagWidget *>())
        QVERIFY(tag->width() <= 600);

    const auto removeFirst = [&dialog] {
        for (DirTagWidget *tag : dialog.findChildren<DirTagWidget *>()) {
            if (tag->isVisibleTo(&dialog)) {
                QTest::mouseClick(child<QPushButton>(tag, "DirTagRemove"), Qt::LeftButton);
                return;
            }
        }
    };
    removeFirst();
    removeFirst();
    QCOMPARE(tagsOf(dialog), QStringList{"/home/a/"_u});
    QStringList told;
    ModalDriver driver(support::presses("NoticeOkBtn", &told));
    removeFirst();
    QVERIFY(driver.handled());
    QCOMPARE(told, (QStringList{"无法移除"_u, "至少需要保留一个保护目录。"_u}));
    QCOMPARE(dialog.settings().protectedDirs, QStringList{"/home/a/"_u});
}

void TestShieldSettings::hoverNotes()
{
    ShieldSettingsDialog dialog;
    dialog.show();
    const auto tip = []() -> QWidget * {
        for (QWidget *window : QApplication::topLevelWidgets()) {
            if (window->objectName() == "AppToolTip"_u && window->isVisible())
                return window;
        }
        return nullptr;
    };
    const auto textAt = [&](QWidget *anchor) {
        QEvent enter(QEvent::Enter);
        QEvent leave(QEvent::Leave);
        QCoreApplication::sendEvent(anchor, &enter);
        const bool late = !tip();
        const bool shown = QTest::qWaitFor([&] { return tip() != nullptr; }, 2000);
        const QString text = shown ? testsupport::textOf(tip(), "AppToolTipTitle") + "|"_u +
                                         testsupport::textOf(tip(), "AppToolTipBody")
                                   : QString();
        QCoreApplication::sendEvent(anchor, &leave);
        return late && !tip() ? text : "too early or too late"_u;
    };
    QCOMPARE(textAt(groupsOf(dialog).at(5)), "压缩包|.zip, .tar.gz, .rar, .7z, .bz2, .xz"_u);
    QCOMPARE(
        textAt(child<QWidget>(&dialog, "SpaceLimitComboHint")),
        "空间上限|保护区允许占用的最大磁盘空间。\n达到上限后，最旧的受保护文件将被自动清理。"_u);
}

void TestShieldSettings::sizeAndButtons()
{
    QCOMPARE(dialogHeight(-1), 560);
    QCOMPARE(dialogHeight(2000), 560);
    QCOMPARE(dialogHeight(701), 456); // 455.65
    for (const char *name : {"ShieldCancel", "ShieldSave", "WinCtlClose"}) {
        ShieldSettingsDialog dialog;
        dialog.show();
        QCOMPARE(dialog.width(), 680);
        clickOn(&dialog, name);
        QCOMPARE(dialog.result() == QDialog::Accepted, qstrcmp(name, "ShieldSave") == 0);
        QVERIFY(!dialog.isVisible());
    }
}

QTEST_MAIN(TestShieldSettings)
#include "tst_shieldsettings.moc"
