#include "ui/common/emptystate.h"
#include "ui/common/flowlayout.h"
#include "ui/common/itemviews.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/segmentedtoggle.h"
#include "ui/common/statwidgets.h"
#include "ui/common/theme.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"

#include <QApplication>
#include <QHeaderView>
#include <QProgressBar>
#include <QPushButton>
#include <QTableWidget>
#include <QtTest>

using namespace ui::common;

namespace {

/// Colour in the middle of a widget's left edge, inside its border.
QColor groundOf(QWidget *widget, const QPoint &position)
{
    return widget->grab().toImage().pixelColor(position);
}

} // namespace

class TestCommonWidgets : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void flowLayout_data();
    void flowLayout();
    void flowLayoutOwnsItsItems();
    void toggleByClicks();
    void toggleByKeys();
    void pillColors_data();
    void pillColors();
    void statBlock();
    void wrapLabel();
    void styleProperty();
    void emptyState();
    void tableRowsLightUpWhole();
    void tableElides();
};

void TestCommonWidgets::initTestCase()
{
    ThemeColors::init(ThemeType::light, 1.0);
    qApp->setPalette(buildPalette(ThemeType::light));
    qApp->setStyleSheet(buildAppStyleSheet(ThemeType::light));
}

void TestCommonWidgets::flowLayout_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<QVector<QPoint>>("positions");
    QTest::addColumn<int>("height");
    using Points = QVector<QPoint>;
    // Items of 50 by 20 with a margin of 5 and spacings of 10 and 4; the fourth is 80 by 40.
    QTest::newRow("one line") << 300 << Points{{5, 5}, {65, 5}, {125, 5}, {185, 5}} << 50;
    QTest::newRow("fits to the pixel") << 270 << Points{{5, 5}, {65, 5}, {125, 5}, {185, 5}} << 50;
    QTest::newRow("a pixel short") << 269 << Points{{5, 5}, {65, 5}, {125, 5}, {5, 29}} << 74;
    QTest::newRow("two a line") << 160 << Points{{5, 5}, {65, 5}, {5, 29}, {65, 29}} << 74;
    QTest::newRow("too narrow for any") << 20 << Points{{5, 5}, {5, 29}, {5, 53}, {5, 77}} << 122;
}

void TestCommonWidgets::flowLayout()
{
    QFETCH(int, width);
    QFETCH(QVector<QPoint>, positions);
    QFETCH(int, height);
    QWidget host;
    auto *layout = new FlowLayout(&host, 5, 10, 4);
    QVector<QWidget *> items;
    for (int index = 0; index < 5; ++index) {
        auto *item = new QWidget(&host);
        item->setFixedSize(index == 3 ? QSize(80, 40) : QSize(50, 20));
        layout->addWidget(item);
        items.append(item);
    }
    // What is hidden takes no room.
    items.takeLast()->hide();
    QVERIFY(layout->hasHeightForWidth());
    QCOMPARE(layout->heightForWidth(width), height);
    QCOMPARE(layout->minimumSize(), QSize(90, 50));
    layout->setGeometry(QRect(0, 0, width, height));
    for (int index = 0; index < positions.size(); ++index)
        QCOMPARE(items.at(index)->pos(), positions.at(index));
}

void TestCommonWidgets::flowLayoutOwnsItsItems()
{
    QWidget host;
    auto *layout = new FlowLayout(&host);
    layout->addWidget(new QWidget(&host));
    QCOMPARE(layout->count(), 1);
    QVERIFY(!layout->takeAt(1));
    QVERIFY(!layout->takeAt(-1));
    QVERIFY(!layout->itemAt(1));
    QScopedPointer<QLayoutItem> item(layout->takeAt(0));
    QVERIFY(item);
    QCOMPARE(layout->count(), 0);
    // Without numbers of its own the layout takes the style's.
    QVERIFY(layout->contentsMargins().left() > 0);
}

void TestCommonWidgets::toggleByClicks()
{
    SegmentedToggle toggle({QStringLiteral("快速扫描"), QStringLiteral("深度扫描")});
    toggle.setFixedWidth(220);
    toggle.show();
    QSignalSpy changed(&toggle, &SegmentedToggle::currentIndexChanged);
    const QList<QPushButton *> buttons = toggle.findChildren<QPushButton *>();
    QCOMPARE(toggle.currentIndex(), 0);
    QVERIFY(buttons.at(0)->isChecked());

    QTest::mouseClick(buttons.at(1), Qt::LeftButton);
    QCOMPARE(toggle.currentIndex(), 1);
    QCOMPARE(changed.count(), 1);
    QCOMPARE(changed.takeFirst().at(0).toInt(), 1);
    // A second click doesn't take the choice back.
    QTest::mouseClick(buttons.at(1), Qt::LeftButton);
    QVERIFY(buttons.at(1)->isChecked());
    QVERIFY(!buttons.at(0)->isChecked());
    QVERIFY(changed.isEmpty());

    for (const int index : {-1, 2, 1})
        toggle.setCurrentIndex(index);
    QVERIFY(changed.isEmpty());
    toggle.setCurrentIndex(0);
    QCOMPARE(changed.count(), 1);
    QVERIFY(buttons.at(0)->isChecked());
}

void TestCommonWidgets::toggleByKeys()
{
    SegmentedToggle toggle({QStringLiteral("文件名搜索"), QStringLiteral("全文检索")});
    toggle.show();
    QVERIFY(QTest::qWaitForWindowActive(&toggle));
    QSignalSpy changed(&toggle, &SegmentedToggle::currentIndexChanged);
    const QList<QPushButton *> buttons = toggle.findChildren<QPushButton *>();
    buttons.at(0)->setFocus();
    QTest::keyClick(buttons.at(0), Qt::Key_Right);
    QCOMPARE(toggle.currentIndex(), 1);
    QCOMPARE(changed.count(), 1);
}

void TestCommonWidgets::pillColors_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("family");
    QTest::newRow("success") << int(StatusPill::Success) << QStringLiteral("success");
    QTest::newRow("warning") << int(StatusPill::Warning) << QStringLiteral("warning");
    QTest::newRow("danger") << int(StatusPill::Danger) << QStringLiteral("danger");
    QTest::newRow("info") << int(StatusPill::Info) << QStringLiteral("info");
}

void TestCommonWidgets::pillColors()
{
    QFETCH(int, type);
    QFETCH(QString, family);
    const ThemeColors &colors = ThemeColors::current();
    // Made with another type, so that the change is what is looked at.
    StatusPill pill(QStringLiteral("状态"),
                    type == StatusPill::Info ? StatusPill::Success : StatusPill::Info);
    pill.show();
    pill.setType(static_cast<StatusPill::Type>(type));
    pill.setText(QStringLiteral("已启用"));
    pill.resize(pill.sizeHint());
    const auto *dot = pill.findChild<QLabel *>(QStringLiteral("StatusPillDot"));
    QCOMPARE(dot->size(), QSize(8, 8));
    QCOMPARE(groundOf(&pill, dot->geometry().center()),
             colors.byName(family + QLatin1String("Text")));
    QCOMPARE(groundOf(&pill, QPoint(dot->x() - 3, pill.height() / 2)),
             colors.byName(family + QLatin1String("Background")));
    QCOMPARE(groundOf(&pill, QPoint(pill.width() / 2, 0)),
             colors.byName(family + QLatin1String("Border")));
    QCOMPARE(pill.findChild<QLabel *>(QStringLiteral("StatusPillText"))->text(),
             QStringLiteral("已启用"));
}

void TestCommonWidgets::statBlock()
{
    StatBlock block(QStringLiteral("已占用空间"), QStringLiteral("0 B"));
    block.setValue(QStringLiteral("1.5 GB"));
    block.show();
    const auto *value = block.findChild<QLabel *>(QStringLiteral("LargeValue"));
    QCOMPARE(value->text(), QStringLiteral("1.5 GB"));
    QCOMPARE(value->font().pixelSize(), 26);
}

void TestCommonWidgets::wrapLabel()
{
    WrapLabel label(QStringLiteral("第一行\n") + QString(300, QLatin1Char('x')));
    label.ensurePolished();
    const int line = label.fontMetrics().height();
    QVERIFY(label.minimumSizeHint().width() < 100);
    QVERIFY(label.naturalWidth() > 1000);
    QVERIFY(label.heightForWidth(5000) >= 2 * line);
    QVERIFY(label.heightForWidth(5000) < 3 * line);
    QVERIFY(label.heightForWidth(200) > 8 * line);
    label.setText(QStringLiteral("短"));
    QVERIFY(label.heightForWidth(200) < 2 * line);
    QCOMPARE(label.sizeHint().width(), label.naturalWidth());
}

void TestCommonWidgets::styleProperty()
{
    QPushButton button(QStringLiteral("保存"));
    button.resize(100, 36);
    const QPoint inside(10, 6);
    const ThemeColors &colors = ThemeColors::current();
    QCOMPARE(groundOf(&button, inside), colors.surface);
    setButtonRole(&button, QStringLiteral("primary"));
    QCOMPARE(groundOf(&button, inside), colors.accentFill());
    setButtonRole(&button, QString());
    QCOMPARE(groundOf(&button, inside), colors.surface);
}

void TestCommonWidgets::emptyState()
{
    EmptyState state(IconWidget::Search);
    state.setTexts(QStringLiteral("没有结果"), QString());
    state.resize(600, 400);
    state.show();
    const auto child = [&state](const char *name) {
        return state.findChild<QWidget *>(QString::fromLatin1(name));
    };
    QCOMPARE(child("EmptyStateIcon")->size(), QSize(48, 48));
    QVERIFY(!child("EmptyStateHint")->isVisible());
    QVERIFY(!child("EmptyStateButton")->isVisible());

    QSignalSpy triggered(&state, &EmptyState::actionTriggered);
    state.setTexts(QStringLiteral("没有结果"), QStringLiteral("换一个关键词。"));
    state.setActionText(QStringLiteral("清除筛选"));
    QVERIFY(child("EmptyStateHint")->isVisible());
    QTest::mouseClick(child("EmptyStateButton"), Qt::LeftButton);
    QCOMPARE(triggered.count(), 1);

    state.setTone(EmptyState::Tone::Busy);
    QVERIFY(!child("EmptyStateIcon")->isVisible());
    const auto *bar = qobject_cast<QProgressBar *>(child("EmptyStateBusyBar"));
    QVERIFY(bar->isVisible());
    QCOMPARE(bar->maximum(), 0);
    state.setTone(EmptyState::Tone::Error);
    QVERIFY(child("EmptyStateIcon")->isVisible());
    QVERIFY(!bar->isVisible());
}

namespace {

void fill(QTableWidget *table)
{
    table->setRowCount(3);
    table->setColumnCount(2);
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 2; ++column)
            table->setItem(row, column, new QTableWidgetItem(QStringLiteral("x")));
    }
    table->resize(400, 300);
    table->show();
}

} // namespace

void TestCommonWidgets::tableRowsLightUpWhole()
{
    QTableWidget table;
    setUpTable(&table);
    fill(&table);
    QCOMPARE(table.rowHeight(0), metrics::rowHeight());
    QCOMPARE(table.horizontalHeader()->height(), metrics::headerHeight());
    const auto ground = [&table](int row, int column) {
        const QRect cell = table.visualItemRect(table.item(row, column));
        return groundOf(table.viewport(), cell.topRight() + QPoint(-4, 4));
    };
    const ThemeColors &colors = ThemeColors::current();
    const auto moveTo = [&table](const QPoint &position) {
        QMouseEvent move(QEvent::MouseMove, position, Qt::NoButton, Qt::NoButton, Qt::NoModifier);
        QCoreApplication::sendEvent(table.viewport(), &move);
    };
    moveTo(table.visualItemRect(table.item(1, 0)).center());
    QCOMPARE(ground(1, 0), colors.hoverBackground);
    QCOMPARE(ground(1, 1), colors.hoverBackground);
    QCOMPARE(ground(0, 0), colors.surface);
    moveTo(table.visualItemRect(table.item(2, 1)).center());
    QCOMPARE(ground(1, 0), colors.surface);
    QCOMPARE(ground(2, 0), colors.hoverBackground);
    // The row goes away under the mouse.
    table.removeRow(2);
    QCOMPARE(ground(1, 0), colors.surface);
    table.selectRow(0);
    QCOMPARE(ground(0, 1), colors.selectionBackground);
    QEvent leave(QEvent::Leave);
    QCoreApplication::sendEvent(table.viewport(), &leave);
    QCOMPARE(ground(1, 0), colors.surface);
}

void TestCommonWidgets::tableElides()
{
    QTableWidget table;
    RowDelegate *delegate = setUpTable(&table);
    delegate->setElideMode(1, Qt::ElideMiddle);
    fill(&table);
    // Same beginning and same end: only the elide mode makes a difference that shows.
    const QString text = QStringLiteral("开头") + QString(100, QLatin1Char('m'));
    table.item(0, 0)->setText(text + QStringLiteral("甲"));
    table.item(1, 0)->setText(text + QStringLiteral("乙"));
    table.item(0, 1)->setText(text + QStringLiteral("甲"));
    table.item(1, 1)->setText(text + QStringLiteral("乙"));
    const auto picture = [&table](int row, int column) {
        return table.viewport()
            ->grab(table.visualItemRect(table.item(row, column)).adjusted(0, 0, 0, -1))
            .toImage();
    };
    QCOMPARE(picture(0, 0), picture(1, 0));
    QVERIFY(picture(0, 1) != picture(1, 1));
}

QTEST_MAIN(TestCommonWidgets)
#include "tst_commonwidgets.moc"
