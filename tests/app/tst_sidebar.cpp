#include "app/collapsiblesidebar.h"
#include "app/sidebarnavbutton.h"
#include "ui/common/theme.h"

#include <QElapsedTimer>
#include <QGraphicsEffect>
#include <QLabel>
#include <QtTest>

using ui::common::IconWidget;
using ui::common::ThemeColors;

class TestSidebar : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void opensUnderTheMouse();
    void slipOffTheEdge();
    void pinned();
    void wordsNeedRoom_data();
    void wordsNeedRoom();
    void entriesKeepTheirPlace();
    void followsTheParentsHeight();
    void longestLabelFits_data();
    void longestLabelFits();
    void backgroundFollowsTheMouse();

private:
    void enter() { send(QEvent::Enter); }
    void leave() { send(QEvent::Leave); }
    void send(QEvent::Type type)
    {
        QEvent event(type);
        QApplication::sendEvent(m_sidebar, &event);
    }
    QList<QLabel *> headers() const
    {
        return m_sidebar->findChildren<QLabel *>(QStringLiteral("SidebarSectionHeader"));
    }

    std::unique_ptr<QWidget> m_window;
    CollapsibleSidebar *m_sidebar = nullptr;
    SidebarNavButton *m_search = nullptr;
    SidebarNavButton *m_help = nullptr;
};

void TestSidebar::init()
{
    m_window = std::make_unique<QWidget>();
    m_window->resize(600, 500);
    m_sidebar = new CollapsibleSidebar(m_window.get());
    m_sidebar->addSectionHeader(QStringLiteral("基础功能"), false);
    m_search = new SidebarNavButton(QStringLiteral("文件搜索"), IconWidget::Search, m_sidebar);
    m_sidebar->addButton(m_search);
    m_sidebar->addSectionHeader(QStringLiteral("专业功能"), true);
    m_help = new SidebarNavButton(QStringLiteral("帮助说明"), IconWidget::Question, m_sidebar);
    m_sidebar->addButton(m_help);
    m_sidebar->addClosingStretch();
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
}

void TestSidebar::cleanup()
{
    m_window.reset();
}

void TestSidebar::opensUnderTheMouse()
{
    QCOMPARE(m_sidebar->width(), 60);
    QVERIFY(!m_sidebar->graphicsEffect());
    QVERIFY(m_search->isCollapsed());

    enter();
    QVERIFY(m_sidebar->graphicsEffect());
    QTRY_COMPARE(m_sidebar->currentWidth(), 175);
    QCOMPARE(m_sidebar->width(), 175);
    QVERIFY(!m_search->isCollapsed());

    QElapsedTimer clock;
    clock.start();
    leave();
    QCOMPARE(m_sidebar->width(), 175); // not at once
    QTRY_VERIFY(m_sidebar->width() < 175);
    QVERIFY2(clock.elapsed() >= 95, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(!m_sidebar->graphicsEffect());
    QTRY_COMPARE(m_sidebar->width(), 60);
    QVERIFY(m_search->isCollapsed());
}

void TestSidebar::slipOffTheEdge()
{
    enter();
    QTRY_COMPARE(m_sidebar->width(), 175);
    leave();
    QTest::qWait(40); // inside the delay of 100 ms
    enter();
    QTest::qWait(200); // the delay would have passed
    QCOMPARE(m_sidebar->width(), 175);
    QVERIFY(m_sidebar->graphicsEffect());
}

void TestSidebar::pinned()
{
    // In the middle of opening, with the shadow on.
    enter();
    QTRY_VERIFY(m_sidebar->width() > 60);
    m_sidebar->setPinned(true);
    QCOMPARE(m_sidebar->width(), 175);
    QVERIFY(!m_sidebar->graphicsEffect());
    QVERIFY(!m_help->isCollapsed());

    leave();
    enter();
    QVERIFY(!m_sidebar->graphicsEffect());
    leave();
    QTest::qWait(200); // longer than the delay before an unpinned one would close
    QCOMPARE(m_sidebar->width(), 175);
    m_sidebar->setPinned(true); // no change
    QCOMPARE(m_sidebar->width(), 175);

    m_sidebar->setPinned(false);
    QCOMPARE(m_sidebar->width(), 60);
    QVERIFY(m_help->isCollapsed());

    // A waiting collapse must not fold a sidebar that has been pinned meanwhile.
    enter();
    leave();
    m_sidebar->setPinned(true);
    QTest::qWait(200); // as above
    QCOMPARE(m_sidebar->width(), 175);
}

void TestSidebar::wordsNeedRoom_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<bool>("words");

    QTest::newRow("collapsed") << 60 << false;
    QTest::newRow("threshold") << 70 << false;
    QTest::newRow("above") << 71 << true;
    QTest::newRow("expanded") << 175 << true;
}

void TestSidebar::wordsNeedRoom()
{
    QFETCH(int, width);
    QFETCH(bool, words);
    m_sidebar->setCurrentWidth(width);
    QCOMPARE(m_sidebar->width(), width);
    QCOMPARE(m_sidebar->findChild<QLabel *>(QStringLiteral("SidebarWordmark"))->isVisible(), words);
    const QList<QLabel *> labels = headers();
    QCOMPARE(labels.size(), 2);
    for (const QLabel *label : labels)
        QCOMPARE(label->isVisible(), words);
    QCOMPARE(m_search->isCollapsed(), !words);
    QCOMPARE(m_help->isCollapsed(), !words);
}

void TestSidebar::entriesKeepTheirPlace()
{
    const int y = m_help->y();
    m_sidebar->setCurrentWidth(175);
    QApplication::sendPostedEvents();
    QCOMPARE(m_help->y(), y);
    QCOMPARE(m_help->width(), 175);
    m_sidebar->setCurrentWidth(60);
    QApplication::sendPostedEvents();
    QCOMPARE(m_help->y(), y);
    QCOMPARE(m_help->width(), 60);
}

void TestSidebar::followsTheParentsHeight()
{
    m_window->resize(640, 700);
    QTRY_COMPARE(m_sidebar->height(), 700);
    m_window->resize(640, 420);
    QTRY_COMPARE(m_sidebar->height(), 420);
}

void TestSidebar::longestLabelFits_data()
{
    QTest::addColumn<double>("scale");
    QTest::newRow("1.0") << 1.0;
    QTest::newRow("1.4") << 1.4;
    QTest::newRow("1.6") << 1.6;
}

void TestSidebar::longestLabelFits()
{
    QFETCH(double, scale);
    ThemeColors::init(ui::common::ThemeType::light, scale);
    SidebarNavButton button(QStringLiteral("受保护文件"), IconWidget::Shield);
    button.setActive(true);
    button.resize(CollapsibleSidebar::expandedWidth, button.sizeHint().height());
    QFont font = button.font();
    font.setPixelSize(ThemeColors::current().fontPx(13));
    font.setWeight(QFont::DemiBold);
    const QFontMetrics metrics(font);
    QVERIFY2(button.labelRect().width() >= metrics.horizontalAdvance(button.text()),
             qPrintable(QString::number(metrics.horizontalAdvance(button.text()))));
    QVERIFY(button.height() >= metrics.height());
}

void TestSidebar::backgroundFollowsTheMouse()
{
    QCOMPARE(m_search->bgProgress(), 0.0);
    QTest::mouseMove(m_search);
    QTRY_COMPARE(m_search->bgProgress(), 1.0);
    QTest::mouseMove(m_window.get(), QPoint(500, 400));
    QTRY_COMPARE(m_search->bgProgress(), 0.0);

    m_search->setActive(true);
    QTRY_COMPARE(m_search->bgProgress(), 1.0);
    QTest::mouseMove(m_search);
    QTest::mouseMove(m_window.get(), QPoint(500, 400));
    QTest::qWait(200); // longer than a fade: an active entry must not fade
    QCOMPARE(m_search->bgProgress(), 1.0);
    m_search->setActive(false);
    QTRY_COMPARE(m_search->bgProgress(), 0.0);

    m_search->setBgProgress(7.0);
    QCOMPARE(m_search->bgProgress(), 1.0);
}

QTEST_MAIN(TestSidebar)
#include "tst_sidebar.moc"
