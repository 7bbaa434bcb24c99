#pragma once

#include "core/ipc/ipcclient.h"
#include "support/fakeservice.h"
#include "ui/common/celldelegate.h"
#include "ui/common/theme.h"

#include <QApplication>
#include <QLabel>
#include <QTableView>
#include <QtTest>

namespace testsupport {

/// A widget of this name below `root`, as this class; a failing look-up ends the test in a crash
/// that names neither, so callers check what they are unsure of.
template <typename Widget>
Widget *child(const QObject *root, const char *name)
{
    return root->findChild<Widget *>(QLatin1String(name));
}

inline QString textOf(const QObject *root, const char *name)
{
    const auto *label = child<QLabel>(root, name);
    return label ? label->text() : QStringLiteral("no such label");
}

inline void clickOn(const QObject *root, const char *name)
{
    auto *widget = child<QWidget>(root, name);
    QVERIFY2(widget && widget->isVisible() && widget->isEnabled(), name);
    QTest::mouseClick(widget, Qt::LeftButton);
}

/// Clicks a button that the table's delegate paints into a cell.
inline void clickAction(QTableView *table, int row, int column, int action)
{
    const auto *delegate = qobject_cast<ui::common::CellDelegate *>(table->itemDelegate());
    QVERIFY(delegate);
    const QRect button = delegate->actionRect(table->model()->index(row, column), action);
    QVERIFY(table->viewport()->rect().contains(button.center()));
    QTest::mouseClick(table->viewport(), Qt::LeftButton, Qt::NoModifier, button.center());
}

inline QString cellText(const QTableView *table, int row, int column)
{
    return table->model()->index(row, column).data().toString();
}

/// The look that these pages have in the recovery environment.
inline void useDarkTheme()
{
    using namespace ui::common;
    ThemeColors::init(ThemeType::dark, 1.0);
    qApp->setPalette(buildPalette(ThemeType::dark));
    qApp->setStyleSheet(buildAppStyleSheet(ThemeType::dark));
}

} // namespace testsupport
