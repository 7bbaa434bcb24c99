#include "support/modaldriver.h"
#include "ui/common/appnoticedialog.h"
#include "ui/common/theme.h"

#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QScreen>
#include <QToolButton>
#include <QtTest>

using support::ModalDriver;
using ui::common::AppNoticeDialog;
using ui::common::ThemeColors;
using ui::common::ThemeType;

namespace {

template <typename T>
T *part(QWidget *dialog, const char *name)
{
    return dialog->findChild<T *>(QString::fromLatin1(name));
}

QString textOf(QWidget *dialog, const char *name)
{
    const auto *label = part<QLabel>(dialog, name);
    return label ? label->text() : QStringLiteral("<none>");
}

void click(QWidget *dialog, const char *name)
{
    QTest::mouseClick(part<QWidget>(dialog, name), Qt::LeftButton);
}

using NoticeFunction = void (*)(QWidget *, const QString &, const QString &, const QString &,
                                const QString &);

enum class Answer { Ok, Cancel, CloseButton, CloseWindow, Escape, Enter };

void give(Answer answer, QWidget *dialog)
{
    switch (answer) {
    case Answer::Ok:
        click(dialog, "NoticeOkBtn");
        break;
    case Answer::Cancel:
        click(dialog, "NoticeCancelBtn");
        break;
    case Answer::CloseButton:
        click(dialog, "WinCtlClose");
        break;
    case Answer::CloseWindow:
        dialog->close();
        break;
    case Answer::Escape:
        QTest::keyClick(dialog, Qt::Key_Escape);
        break;
    case Answer::Enter:
        QTest::keyClick(dialog->focusWidget() ? dialog->focusWidget() : dialog, Qt::Key_Return);
        break;
    }
}

} // namespace

Q_DECLARE_METATYPE(NoticeFunction)
Q_DECLARE_METATYPE(Answer)
Q_DECLARE_METATYPE(AppNoticeDialog::NoticeType)

class TestAppNoticeDialog : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void defaults();
    void notices_data();
    void notices();
    void confirm_data();
    void confirm();
    void confirmTexts();
    void copyDetail();
    void longTexts();
    void scrim();
    void titleOfHints();
    void parentDeletedWhileOpen();
};

void TestAppNoticeDialog::initTestCase()
{
    ThemeColors::init(ThemeType::light, 1.15);
    qApp->setPalette(ui::common::buildPalette(ThemeType::light));
    qApp->setStyleSheet(ui::common::buildAppStyleSheet(ThemeType::light));
}

void TestAppNoticeDialog::defaults()
{
    AppNoticeDialog dialog;
    QCOMPARE(dialog.windowTitle(), QStringLiteral("提示"));
    QVERIFY(dialog.isModal());
    QCOMPARE(textOf(&dialog, "NoticeTitle"), QStringLiteral("操作完成"));
    QCOMPARE(textOf(&dialog, "NoticeMessage"), QStringLiteral("已完成当前操作。"));
    QCOMPARE(part<QPushButton>(&dialog, "NoticeOkBtn")->text(), QStringLiteral("我知道了"));
    QVERIFY(part<QWidget>(&dialog, "NoticeDetailRow")->isHidden());
    QVERIFY(!part<QPushButton>(&dialog, "NoticeCancelBtn"));
    QCOMPARE(textOf(&dialog, "CustomTitleLabel"), QStringLiteral("提示"));
}

void TestAppNoticeDialog::notices_data()
{
    QTest::addColumn<NoticeFunction>("function");
    QTest::addColumn<QString>("style");
    QTest::addColumn<QColor>("ink");
    const ThemeColors colors = ThemeColors::light();
    QTest::newRow("success") << NoticeFunction(&AppNoticeDialog::showSuccess)
                             << QStringLiteral("success") << colors.successText;
    QTest::newRow("info") << NoticeFunction(&AppNoticeDialog::showInfo) << QStringLiteral("info")
                          << colors.infoText;
    QTest::newRow("warning") << NoticeFunction(&AppNoticeDialog::showWarning)
                             << QStringLiteral("warning") << colors.warningText;
    QTest::newRow("error") << NoticeFunction(&AppNoticeDialog::showError)
                           << QStringLiteral("danger") << colors.dangerText;
}

void TestAppNoticeDialog::notices()
{
    QFETCH(NoticeFunction, function);
    QFETCH(QString, style);
    QFETCH(QColor, ink);

    ModalDriver full([&](QWidget *dialog) {
        QCOMPARE(textOf(dialog, "NoticeTitle"), QStringLiteral("标题"));
        QCOMPARE(textOf(dialog, "NoticeMessage"), QStringLiteral("<b>正文</b>"));
        QCOMPARE(part<QLineEdit>(dialog, "NoticeDetailEdit")->text(), QStringLiteral("/tmp/a"));
        QVERIFY(part<QLineEdit>(dialog, "NoticeDetailEdit")->isReadOnly());
        QVERIFY(part<QWidget>(dialog, "NoticeDetailRow")->isVisible());
        QCOMPARE(part<QPushButton>(dialog, "NoticeOkBtn")->text(), QStringLiteral("关闭"));
        QVERIFY(!part<QPushButton>(dialog, "NoticeCancelBtn"));
        auto *icon = part<QLabel>(dialog, "NoticeIconWrap");
        QCOMPARE(icon->property("notice").toString(), style);
        const QImage glyph = icon->pixmap()->toImage();
        QVERIFY(glyph.pixelColor(4, glyph.height() / 2) == ink ||
                glyph.pixelColor(glyph.width() / 2, 4) == ink);
        give(Answer::Enter, dialog);
    });
    function(nullptr, QStringLiteral("标题"), QStringLiteral("<b>正文</b>"),
             QStringLiteral("/tmp/a"), QStringLiteral("关闭"));
    QVERIFY(full.handled());

    ModalDriver plain([](QWidget *dialog) {
        QVERIFY(!part<QWidget>(dialog, "NoticeDetailRow")->isVisible());
        QCOMPARE(part<QPushButton>(dialog, "NoticeOkBtn")->text(), QStringLiteral("我知道了"));
        give(Answer::Ok, dialog);
    });
    function(nullptr, QStringLiteral("标题"), QStringLiteral("正文"), QString(), QString());
    QVERIFY(plain.handled());
}

void TestAppNoticeDialog::confirm_data()
{
    QTest::addColumn<AppNoticeDialog::NoticeType>("type");
    QTest::addColumn<Answer>("answer");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("confirmed") << AppNoticeDialog::Warning << Answer::Ok << true;
    QTest::newRow("cancelled") << AppNoticeDialog::Warning << Answer::Cancel << false;
    QTest::newRow("close control") << AppNoticeDialog::Warning << Answer::CloseButton << false;
    QTest::newRow("window closed") << AppNoticeDialog::Warning << Answer::CloseWindow << false;
    QTest::newRow("escape") << AppNoticeDialog::Information << Answer::Escape << false;
    QTest::newRow("enter") << AppNoticeDialog::Success << Answer::Enter << false;
    QTest::newRow("enter, harm") << AppNoticeDialog::Warning << Answer::Enter << false;
    QTest::newRow("enter, error") << AppNoticeDialog::Error << Answer::Enter << false;
}

void TestAppNoticeDialog::confirm()
{
    QFETCH(AppNoticeDialog::NoticeType, type);
    QFETCH(Answer, answer);
    QFETCH(bool, accepted);
    ModalDriver driver([answer](QWidget *dialog) { give(answer, dialog); });
    QCOMPARE(AppNoticeDialog::confirm(nullptr, QStringLiteral("确认删除"), QStringLiteral("?"),
                                      QString(), QString(), type),
             accepted);
    QVERIFY(driver.handled());
}

void TestAppNoticeDialog::confirmTexts()
{
    ModalDriver defaults([](QWidget *dialog) {
        auto *confirm = part<QPushButton>(dialog, "NoticeOkBtn");
        auto *cancel = part<QPushButton>(dialog, "NoticeCancelBtn");
        QCOMPARE(confirm->text(), QStringLiteral("确认"));
        QCOMPARE(cancel->text(), QStringLiteral("取消"));
        // The main button is the last one of the row.
        QVERIFY(confirm->x() > cancel->x());
        QCOMPARE(part<QLabel>(dialog, "NoticeIconWrap")->property("notice").toString(),
                 QStringLiteral("warning"));
        give(Answer::Ok, dialog);
    });
    QVERIFY(AppNoticeDialog::confirm(nullptr, QStringLiteral("t"), QStringLiteral("m")));
    QVERIFY(defaults.handled());

    ModalDriver own([](QWidget *dialog) {
        QCOMPARE(part<QPushButton>(dialog, "NoticeOkBtn")->text(), QStringLiteral("退出程序"));
        QCOMPARE(part<QPushButton>(dialog, "NoticeCancelBtn")->text(), QStringLiteral("我知道了"));
        give(Answer::Cancel, dialog);
    });
    QVERIFY(!AppNoticeDialog::confirm(nullptr, QStringLiteral("t"), QStringLiteral("m"),
                                      QStringLiteral("退出程序"), QStringLiteral("我知道了"),
                                      AppNoticeDialog::Success));
    QVERIFY(own.handled());
}

void TestAppNoticeDialog::copyDetail()
{
    AppNoticeDialog dialog;
    dialog.setDetailText(QStringLiteral("/home/用户/日志.log"));
    dialog.show();
    auto *copy = part<QPushButton>(&dialog, "NoticeDetailCopyBtn");
    QCOMPARE(copy->text(), QStringLiteral("复制"));
    click(&dialog, "NoticeDetailCopyBtn");
    QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("/home/用户/日志.log"));
    QCOMPARE(copy->text(), QStringLiteral("已复制"));
    QVERIFY(dialog.isVisible());
    dialog.setDetailText(QStringLiteral("other"));
    QCOMPARE(copy->text(), QStringLiteral("复制"));
    dialog.setDetailText(QString());
    QVERIFY(part<QWidget>(&dialog, "NoticeDetailRow")->isHidden());
}

void TestAppNoticeDialog::longTexts()
{
    AppNoticeDialog plain;
    plain.show();
    AppNoticeDialog wide;
    wide.setTitleText(QString(300, QLatin1Char('t')));
    wide.setMessageText(QString(300, QLatin1Char('m')));
    wide.show();
    QCOMPARE(wide.width(), plain.width());
    QVERIFY(wide.height() > plain.height());
    // All of the message fits.
    auto *message = part<QLabel>(&wide, "NoticeMessage");
    QVERIFY(message->height() >= message->heightForWidth(message->width()));
    QVERIFY(message->parentWidget()->height() >= message->height());

    AppNoticeDialog tall;
    tall.setMessageText(QStringLiteral("一行\n").repeated(500));
    tall.show();
    QVERIFY(tall.height() < QGuiApplication::primaryScreen()->availableGeometry().height());
    auto *confirm = part<QPushButton>(&tall, "NoticeOkBtn");
    QVERIFY(tall.rect().contains(confirm->mapTo(&tall, confirm->rect().bottomRight())));
}

void TestAppNoticeDialog::scrim()
{
    QWidget window;
    auto *page = new QWidget(&window);
    window.resize(900, 600);
    window.show();
    const auto scrim = [&window] {
        return window.findChild<QWidget *>(QStringLiteral("DialogScrim"));
    };
    const QColor before = window.grab().toImage().pixelColor(5, 5);
    {
        AppNoticeDialog dialog(page);
        dialog.show();
        QVERIFY(scrim() && scrim()->isVisible());
        window.resize(1000, 700);
        QTRY_COMPARE(scrim()->geometry(), window.rect());
        QVERIFY(window.grab().toImage().pixelColor(5, 5).lightness() < before.lightness());
        dialog.hide();
        QVERIFY(!scrim() || !scrim()->isVisible());
        dialog.show();
        QVERIFY(scrim());
    }
    QTRY_VERIFY(!scrim());
    QCOMPARE(window.grab().toImage().pixelColor(5, 5), before);
}

void TestAppNoticeDialog::titleOfHints()
{
    QWidget window;
    auto *title = new QLabel(QStringLiteral("空间分析"), &window);
    title->setObjectName(QStringLiteral("PageTitle"));
    window.show();
    const auto titles = [&window](const QString &heading) {
        QStringList seen;
        ModalDriver driver([&seen](QWidget *dialog) {
            seen << dialog->windowTitle() << textOf(dialog, "NoticeTitle");
            click(dialog, "NoticeOkBtn");
        });
        AppNoticeDialog::showInfo(&window, heading, QStringLiteral("m"));
        return seen;
    };
    QCOMPARE(titles(QStringLiteral("提示")),
             (QStringList{QStringLiteral("空间分析"), QStringLiteral("提示")}));
    QCOMPARE(titles(QStringLiteral("扫描完成")),
             (QStringList{QStringLiteral("扫描完成"), QStringLiteral("扫描完成")}));
}

void TestAppNoticeDialog::parentDeletedWhileOpen()
{
    QPointer<QWidget> parent(new QWidget);
    parent->show();
    ModalDriver driver([&parent](QWidget *) { delete parent.data(); });
    QVERIFY(!AppNoticeDialog::confirm(parent, QStringLiteral("t"), QStringLiteral("m")));
    QVERIFY(driver.handled());
    QVERIFY(!parent);
}

QTEST_MAIN(TestAppNoticeDialog)
#include "tst_appnoticedialog.moc"
