#include "app/collapsiblesidebar.h"
#include "app/sidebarnavbutton.h"
#include "ui/common/theme.h"

#include <QElapsedTimer>
#include <QGraphicsEffect>
#include <QLabel>
#include <QPropertyAnimation>
#include <QtTest>

using ui::common::IconWidget;
using ui::common::ThemeColors;

class TestSidebar : public QObject
{
    Q_OBJECT

private slots:
    void init()
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

    void cleanup() { m_window.reset(); }

    void opensUnderTheMouse()
    {
        QCOMPARE(m_sidebar->width(), 60);
        send(QEvent::Enter);
        QVERIFY(m_sidebar->graphicsEffect());
        QTRY_COMPARE(m_sidebar->width(), 175);
        QCOMPARE(m_sidebar->currentWidth(), 175);

        QElapsedTimer clock;
        clock.start();
        send(QEvent::Leave);
        QTRY_VERIFY(m_sidebar->width() < 175);
        QVERIFY2(clock.elapsed() >= 90, qPrintable(QString::number(clock.elapsed())));
        QVERIFY(!m_sidebar->graphicsEffect());
        QTRY_COMPARE(m_sidebar->width(), 60);
    }

    void slipOffTheEdge()
    {
        send(QEvent::Enter);
        QTRY_COMPARE(m_sidebar->width(), 175);
        send(QEvent::Leave);
        QVERIFY(isCollapseDue());
        send(QEvent::Enter);
        QVERIFY(!isCollapseDue());
        QCOMPARE(m_sidebar->width(), 175);
        QVERIFY(m_sidebar->graphicsEffect());
    }

    void pinned()
    {
        // In the middle of opening, with the shadow on.
        send(QEvent::Enter);
        QTRY_VERIFY(m_sidebar->width() > 60);
        m_sidebar->setPinned(true);
        QCOMPARE(m_sidebar->width(), 175);
        send(QEvent::Leave);
        send(QEvent::Enter);
        QVERIFY(!m_sidebar->graphicsEffect());
        send(QEvent::Leave);
        QVERIFY(!isCollapseDue());
        QCOMPARE(m_sidebar->width(), 175);

        m_sidebar->setPinned(false);
        QCOMPARE(m_sidebar->width(), 60);
        // A waiting collapse must not fold a sidebar that has been pinned meanwhile.
        send(QEvent::Enter);
        send(QEvent::Leave);
        QVERIFY(isCollapseDue());
        m_sidebar->setPinned(true);
        QVERIFY(!isCollapseDue());
        QCOMPARE(m_sidebar->width(), 175);
    }

    void wordsNeedRoom()
    {
        QList<QLabel *> labels =
            m_sidebar->findChildren<QLabel *>(QStringLiteral("SidebarSectionHeader"));
        labels += m_sidebar->findChild<QLabel *>(QStringLiteral("SidebarWordmark"));
        QCOMPARE(labels.size(), 3);
        const int helpY = m_help->y();
        for (const int width : {60, 70, 71, 175}) {
            m_sidebar->setCurrentWidth(width);
            QCOMPARE(m_sidebar->width(), width);
            const bool words = width > 70;
            for (const QLabel *label : qAsConst(labels))
                QCOMPARE(label->isVisible(), words);
            QCOMPARE(m_search->isCollapsed(), !words);
            QCOMPARE(m_help->isCollapsed(), !words);
            // No entry moves away under the mouse.
            QApplication::sendPostedEvents();
            QCOMPARE(m_help->y(), helpY);
            QCOMPARE(m_help->width(), width);
        }
    }

    void followsTheParentsHeight()
    {
        m_window->resize(640, 700);
        QTRY_COMPARE(m_sidebar->height(), 700);
        m_window->resize(640, 420);
        QTRY_COMPARE(m_sidebar->height(), 420);
    }

    void longestLabelFits()
    {
        for (const double scale : {1.0, 1.4, 1.6}) {
            ThemeColors::init(ui::common::ThemeType::light, scale);
            SidebarNavButton button(QStringLiteral("受保护文件"), IconWidget::Shield);
            button.resize(CollapsibleSidebar::expandedWidth, button.sizeHint().height());
            QFont font = button.font();
            font.setPixelSize(ThemeColors::current().fontPx(13));
            font.setWeight(QFont::DemiBold);
            const QFontMetrics metrics(font);
            QVERIFY(button.labelRect().width() >= metrics.horizontalAdvance(button.text()));
            QVERIFY(button.height() >= metrics.height());
        }
    }

    void backgroundFollowsTheMouse()
    {
        const auto moveAway = [this] {
            QTest::mouseMove(m_window.get(), QPoint(500, 400));
        };
        QTest::mouseMove(m_search);
        QTRY_COMPARE(m_search->bgProgress(), 1.0);
        moveAway();
        QTRY_COMPARE(m_search->bgProgress(), 0.0);

        m_search->setActive(true);
        QTRY_COMPARE(m_search->bgProgress(), 1.0);
        QTest::mouseMove(m_search);
        moveAway();
        // An active entry does not fade.
        QCOMPARE(m_search->findChild<QPropertyAnimation *>()->endValue().toDouble(), 1.0);
        QCOMPARE(m_search->bgProgress(), 1.0);
        m_search->setActive(false);
        QTRY_COMPARE(m_search->bgProgress(), 0.0);
    }

private:
    void send(QEvent::Type type)
    {
        QEvent event(type);
        QApplication::sendEvent(m_sidebar, &event);
    }

    bool isCollapseDue() const { return m_sidebar->findChild<QTimer *>()->isActive(); }

    std::unique_ptr<QWidget> m_window;
    CollapsibleSidebar *m_sidebar = nullptr;
    SidebarNavButton *m_search = nullptr;
    SidebarNavButton *m_help = nullptr;
};

QTEST_MAIN(TestSidebar)
#include "tst_sidebar.moc"
