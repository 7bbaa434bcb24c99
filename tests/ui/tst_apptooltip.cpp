#include "ui/common/apptooltip.h"
#include "ui/common/elidedlabel.h"
#include "ui/common/theme.h"

#include <QApplication>
#include <QHelpEvent>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QtTest>

#include <memory>

using ui::common::AppToolTip;
using ui::common::ElidedLabel;
using ui::common::ThemeColors;
using ui::common::ThemeType;

namespace {

constexpr int kGap = 4;
constexpr int kDelay = 60;

QWidget *tip()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget *window : windows) {
        if (window->objectName() == QLatin1String("AppToolTip"))
            return window;
    }
    return nullptr;
}

bool tipShows()
{
    return tip() && tip()->isVisible();
}

QLabel *tipPart(const char *name)
{
    return tip()->findChild<QLabel *>(QString::fromLatin1(name));
}

void enter(QWidget *widget)
{
    QEnterEvent event(QPointF(2, 2), QPointF(2, 2), widget->mapToGlobal(QPoint(2, 2)));
    QCoreApplication::sendEvent(widget, &event);
}

void send(QWidget *widget, QEvent::Type type)
{
    QEvent event(type);
    QCoreApplication::sendEvent(widget, &event);
}

} // namespace

Q_DECLARE_METATYPE(QEvent::Type)

class TestAppToolTip : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void position_data();
    void position();
    void size_data();
    void size();
    void titleOnlyIfGiven();
    void delay();
    void laterCallReplaces();
    void dismissal_data();
    void dismissal();
    void clickDismisses();
    void installed();
    void installedTextsChange();
    void anchorGoes_data();
    void anchorGoes();
    void elidedLabelShowsItsText();

private:
    std::unique_ptr<QPushButton> m_anchor;
};

void TestAppToolTip::initTestCase()
{
    ThemeColors::init(ThemeType::dark, 1.0);
    qApp->setPalette(ui::common::buildPalette(ThemeType::dark));
    qApp->setStyleSheet(ui::common::buildAppStyleSheet(ThemeType::dark));
}

void TestAppToolTip::init()
{
    m_anchor = std::make_unique<QPushButton>(QStringLiteral("停在这里"));
    m_anchor->setWindowFlags(Qt::FramelessWindowHint);
    m_anchor->setGeometry(100, 100, 120, 36);
    m_anchor->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_anchor.get()));
}

void TestAppToolTip::cleanup()
{
    AppToolTip::hide();
    m_anchor.reset();
}

void TestAppToolTip::position_data()
{
    QTest::addColumn<QPoint>("anchor");
    QTest::addColumn<bool>("above");
    const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
    QTest::newRow("below") << QPoint(100, 100) << false;
    QTest::newRow("bottom edge") << QPoint(100, screen.bottom() - 40) << true;
    QTest::newRow("right edge") << QPoint(screen.right() - 60, 100) << false;
    QTest::newRow("lower right corner")
        << QPoint(screen.right() - 60, screen.bottom() - 40) << true;
    QTest::newRow("left of the screen") << QPoint(-40, 100) << false;
}

void TestAppToolTip::position()
{
    QFETCH(QPoint, anchor);
    QFETCH(bool, above);
    m_anchor->move(anchor);
    AppToolTip::show(m_anchor.get(), QStringLiteral("标题"),
                     QStringLiteral("一段不长不短的说明文字，用来看提示的位置。"), 0);
    QVERIFY(tipShows());
    const QRect geometry = tip()->geometry();
    const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
    const QRect place = m_anchor->geometry();
    QVERIFY(screen.contains(geometry));
    if (above)
        QCOMPARE(geometry.bottom() + 1 + kGap, place.top());
    else
        QCOMPARE(geometry.top(), place.bottom() + 1 + kGap);
    const int pushed = screen.right() + 1 - geometry.width();
    QCOMPARE(geometry.left(), qMax(screen.left(), qMin(place.left(), pushed)));
}

void TestAppToolTip::size_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<bool>("wraps");
    QTest::newRow("short") << QStringLiteral("短说明") << false;
    QTest::newRow("two lines") << QStringLiteral("第一行长一点\n第二行") << false;
    QTest::newRow("long") << QStringLiteral("很长的说明。").repeated(40) << true;
    QTest::newRow("long word") << QString(400, QLatin1Char('w')) << true;
}

void TestAppToolTip::size()
{
    QFETCH(QString, body);
    QFETCH(bool, wraps);
    AppToolTip::show(m_anchor.get(), body, 0);
    const QLabel *label = tipPart("AppToolTipBody");
    const QFontMetrics metrics = label->fontMetrics();
    if (wraps) {
        QCOMPARE(tip()->width(), 320);
        const int lines = metrics.horizontalAdvance(body) / (320 - 24);
        QVERIFY(label->height() >= lines * metrics.height());
    } else {
        int widest = 0;
        const QStringList lines = body.split(QLatin1Char('\n'));
        for (const QString &line : lines)
            widest = qMax(widest, metrics.horizontalAdvance(line));
        QVERIFY(qAbs(tip()->width() - (widest + 24)) <= 1);
        QVERIFY(label->height() < (lines.size() + 1) * metrics.height());
    }
    QCOMPARE(label->height(), label->heightForWidth(label->width()));
}

void TestAppToolTip::titleOnlyIfGiven()
{
    AppToolTip::show(m_anchor.get(), QStringLiteral("监控深度"), QStringLiteral("说明文字"), 0);
    QVERIFY(tipPart("AppToolTipTitle")->isVisible());
    QCOMPARE(tipPart("AppToolTipTitle")->text(), QStringLiteral("监控深度"));
    const int withTitle = tip()->height();
    AppToolTip::show(m_anchor.get(), QStringLiteral("说明文字"), 0);
    QVERIFY(!tipPart("AppToolTipTitle")->isVisible());
    QVERIFY(tip()->height() < withTitle);
    AppToolTip::show(m_anchor.get(), QString(), 0);
    QVERIFY(!tipShows());
}

void TestAppToolTip::delay()
{
    AppToolTip::show(m_anchor.get(), QStringLiteral("稍后"), kDelay);
    QVERIFY(!tipShows());
    QTRY_VERIFY(tipShows());
    AppToolTip::hide();
    QVERIFY(!tipShows());

    AppToolTip::show(m_anchor.get(), QStringLiteral("不会出现"), kDelay);
    send(m_anchor.get(), QEvent::Leave);
    // Nothing is to happen: only the passing of the delay can show that.
    QTest::qWait(2 * kDelay);
    QVERIFY(!tipShows());
    AppToolTip::show(nullptr, QStringLiteral("无处可去"), 0);
    QVERIFY(!tipShows());
}

void TestAppToolTip::laterCallReplaces()
{
    QPushButton other;
    other.setWindowFlags(Qt::FramelessWindowHint);
    other.setGeometry(300, 300, 80, 30);
    other.show();
    AppToolTip::show(m_anchor.get(), QStringLiteral("旧"), 0);
    AppToolTip::show(m_anchor.get(), QStringLiteral("旧，稍后"), kDelay);
    AppToolTip::show(&other, QStringLiteral("新"), 0);
    QVERIFY(tipShows());
    QCOMPARE(tipPart("AppToolTipBody")->text(), QStringLiteral("新"));
    QCOMPARE(tip()->y(), other.geometry().bottom() + 1 + kGap);
    // The earlier anchor has no say any more.
    send(m_anchor.get(), QEvent::Leave);
    m_anchor.reset();
    QVERIFY(tipShows());
    QTest::qWait(2 * kDelay); // The first call's delay must pass without effect.
    QCOMPARE(tipPart("AppToolTipBody")->text(), QStringLiteral("新"));
}

void TestAppToolTip::dismissal_data()
{
    QTest::addColumn<QEvent::Type>("type");
    QTest::addColumn<bool>("dismisses");
    QTest::newRow("leave") << QEvent::Leave << true;
    QTest::newRow("hide") << QEvent::Hide << true;
    QTest::newRow("close") << QEvent::Close << true;
    QTest::newRow("window deactivated") << QEvent::WindowDeactivate << true;
    QTest::newRow("update") << QEvent::UpdateRequest << false;
    QTest::newRow("style") << QEvent::DynamicPropertyChange << false;
}

void TestAppToolTip::dismissal()
{
    QFETCH(QEvent::Type, type);
    QFETCH(bool, dismisses);
    AppToolTip::show(m_anchor.get(), QStringLiteral("说明"), 0);
    QVERIFY(tipShows());
    if (type == QEvent::DynamicPropertyChange)
        m_anchor->setProperty("role", QStringLiteral("primary"));
    else
        send(m_anchor.get(), type);
    QCOMPARE(tipShows(), !dismisses);
}

void TestAppToolTip::clickDismisses()
{
    QSignalSpy clicked(m_anchor.get(), &QPushButton::clicked);
    AppToolTip::show(m_anchor.get(), QStringLiteral("说明"), 0);
    QTest::mouseClick(m_anchor.get(), Qt::LeftButton);
    QVERIFY(!tipShows());
    QCOMPARE(clicked.count(), 1);
    AppToolTip::show(m_anchor.get(), QStringLiteral("说明"), 0);
    QTest::keyClick(m_anchor.get(), Qt::Key_Space);
    QVERIFY(!tipShows());
    QCOMPARE(clicked.count(), 2);
}

void TestAppToolTip::installed()
{
    AppToolTip::install(m_anchor.get(), QStringLiteral("增量间隔"), QStringLiteral("说明"), kDelay);
    for (int round = 0; round < 2; ++round) {
        QVERIFY(!tipShows());
        enter(m_anchor.get());
        QVERIFY(!tipShows());
        QTRY_VERIFY(tipShows());
        QCOMPARE(tipPart("AppToolTipTitle")->text(), QStringLiteral("增量间隔"));
        send(m_anchor.get(), QEvent::Leave);
        QVERIFY(!tipShows());
    }
}

void TestAppToolTip::installedTextsChange()
{
    AppToolTip::install(m_anchor.get(), QString(), QStringLiteral("之前"), 0);
    enter(m_anchor.get());
    QCOMPARE(tipPart("AppToolTipBody")->text(), QStringLiteral("之前"));
    AppToolTip::install(m_anchor.get(), QString(), QStringLiteral("之后"), kDelay);
    QVERIFY(tipShows());
    QCOMPARE(tipPart("AppToolTipBody")->text(), QStringLiteral("之后"));

    send(m_anchor.get(), QEvent::Leave);
    enter(m_anchor.get());
    AppToolTip::install(m_anchor.get(), QString(), QStringLiteral("等待时改变"), kDelay);
    QTRY_VERIFY(tipShows());
    QCOMPARE(tipPart("AppToolTipBody")->text(), QStringLiteral("等待时改变"));
    AppToolTip::install(m_anchor.get(), QString(), QString(), kDelay);
    QVERIFY(!tipShows());
}

void TestAppToolTip::anchorGoes_data()
{
    QTest::addColumn<bool>("installed");
    QTest::addColumn<bool>("showing");
    QTest::newRow("before the delay") << false << false;
    QTest::newRow("while showing") << false << true;
    QTest::newRow("installed, before the delay") << true << false;
    QTest::newRow("installed, while showing") << true << true;
}

void TestAppToolTip::anchorGoes()
{
    QFETCH(bool, installed);
    QFETCH(bool, showing);
    const int wait = showing ? 0 : kDelay;
    if (installed) {
        AppToolTip::install(m_anchor.get(), QStringLiteral("标题"), QStringLiteral("说明"), wait);
        enter(m_anchor.get());
    } else {
        AppToolTip::show(m_anchor.get(), QStringLiteral("说明"), wait);
    }
    QCOMPARE(tipShows(), showing);
    m_anchor.reset();
    QVERIFY(!tipShows());
    QTest::qWait(2 * kDelay); // The delay must pass without effect.
    QVERIFY(!tipShows());
}

void TestAppToolTip::elidedLabelShowsItsText()
{
    const QString path = QStringLiteral("/home/用户/文档/") + QString(200, QLatin1Char('x'));
    ElidedLabel label(path, Qt::ElideMiddle);
    label.setGeometry(100, 100, 150, 30);
    label.show();
    QVERIFY(label.isElided());
    QVERIFY(label.minimumSizeHint().width() < 150);
    QHelpEvent ask(QEvent::ToolTip, QPoint(2, 2), label.mapToGlobal(QPoint(2, 2)));
    QCoreApplication::sendEvent(&label, &ask);
    QVERIFY(tipShows());
    QCOMPARE(tipPart("AppToolTipBody")->text(), path);
    AppToolTip::hide();
    label.setText(QStringLiteral("短"));
    QVERIFY(!label.isElided());
    QCoreApplication::sendEvent(&label, &ask);
    QVERIFY(!tipShows());
}

QTEST_MAIN(TestAppToolTip)
#include "tst_apptooltip.moc"
