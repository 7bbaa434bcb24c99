#include "ui/common/accessibility.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QAbstractSpinBox>
#include <QAccessibleWidget>
#include <QComboBox>
#include <QCoreApplication>
#include <QFormLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QScrollArea>
#include <QTabBar>
#include <QTextEdit>

namespace ui::common {

namespace {

const char roleProperty[] = "accessibleRole";

// A widget under a role of its own, with the press that goes with it.
class RoleInterface : public QAccessibleWidget
{
public:
    RoleInterface(QWidget *widget, QAccessible::Role role)
        : QAccessibleWidget(widget, role)
    {}

    QString text(QAccessible::Text which) const override
    {
        const QString own = QAccessibleWidget::text(which);
        const auto *button = qobject_cast<QAbstractButton *>(widget());
        return own.isEmpty() && button && which == QAccessible::Name ? button->text() : own;
    }

    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        const auto *button = qobject_cast<QAbstractButton *>(widget());
        const QVariant selected = widget()->property("selected");
        state.checkable = (button && button->isCheckable()) || selected.isValid();
        state.checked = button ? button->isChecked() : selected.toBool();
        return state;
    }

    QStringList actionNames() const override
    {
        if (role() == QAccessible::Window || role() == QAccessible::Pane)
            return QAccessibleWidget::actionNames();
        return QStringList{pressAction()} + QAccessibleWidget::actionNames();
    }

    void doAction(const QString &name) override
    {
        if (name != pressAction() || !widget()->isEnabled()) {
            QAccessibleWidget::doAction(name);
        } else if (auto *button = qobject_cast<QAbstractButton *>(widget())) {
            button->click();
        } else {
            QKeyEvent down(QEvent::KeyPress, Qt::Key_Space, Qt::NoModifier);
            QCoreApplication::sendEvent(widget(), &down);
        }
    }
};

// Containers say what they are; by their class they would be fillers.
QAccessible::Role containerRole(const QString &className, const QWidget *widget)
{
    if (className == QLatin1String("QScrollArea"))
        return QAccessible::Pane;
    if (className == QLatin1String("QWidget") && widget->isWindow())
        return QAccessible::Window;
    return QAccessible::NoRole;
}

QAccessibleInterface *roleFactory(const QString &className, QObject *object)
{
    if (!object || !object->isWidgetType())
        return nullptr;
    auto *widget = static_cast<QWidget *>(object);
    const QVariant own = widget->property(roleProperty);
    const QAccessible::Role role =
        own.isValid() ? QAccessible::Role(own.toInt()) : containerRole(className, widget);
    return role == QAccessible::NoRole ? nullptr : new RoleInterface(widget, role);
}

bool hasBuddy(const QWidget *widget)
{
    const QList<QLabel *> labels = widget->parentWidget()
                                       ? widget->parentWidget()->findChildren<QLabel *>()
                                       : QList<QLabel *>();
    for (const QLabel *label : labels) {
        if (label->buddy() == widget)
            return true;
    }
    return false;
}

// The text of the label that was made last before the widget, in the same parent.
QString labelBefore(const QWidget *widget)
{
    QString text;
    const QObjectList children =
        widget->parentWidget() ? widget->parentWidget()->children() : QObjectList();
    for (const QObject *child : children) {
        if (child == widget)
            break;
        const auto *label = qobject_cast<const QLabel *>(child);
        if (label && !label->text().isEmpty())
            text = label->text();
    }
    return text.remove(QLatin1Char(':')).remove(QChar(0xFF1A)).trimmed();
}

QString nameOfField(const QWidget *widget)
{
    if (const auto *edit = qobject_cast<const QLineEdit *>(widget)) {
        const auto *owner = qobject_cast<const QAbstractSpinBox *>(edit->parentWidget());
        if (owner && !owner->accessibleName().isEmpty())
            return owner->accessibleName();
        if (!edit->placeholderText().isEmpty())
            return edit->placeholderText();
    }
    const QString label = labelBefore(widget);
    return label.isEmpty() && widget->parentWidget() ? labelBefore(widget->parentWidget()) : label;
}

// The icons that a line edit holds have no tip: they belong to the edit.
QString nameOfIconButton(const QAbstractButton *button)
{
    if (!button->toolTip().isEmpty())
        return button->toolTip();
    const auto *edit = qobject_cast<const QLineEdit *>(button->parentWidget());
    return edit ? edit->placeholderText() : QString();
}

bool isField(const QWidget *widget)
{
    return qobject_cast<const QLineEdit *>(widget) || qobject_cast<const QComboBox *>(widget) ||
           qobject_cast<const QAbstractSpinBox *>(widget) ||
           qobject_cast<const QTextEdit *>(widget) ||
           qobject_cast<const QPlainTextEdit *>(widget) ||
           (qobject_cast<const QAbstractItemView *>(widget) &&
            !qobject_cast<const QHeaderView *>(widget));
}

void nameWidget(QWidget *widget)
{
    if (!widget->accessibleName().isEmpty())
        return;
    if (const auto *button = qobject_cast<QAbstractButton *>(widget)) {
        if (button->text().isEmpty())
            widget->setAccessibleName(nameOfIconButton(button));
    } else if (qobject_cast<QTabBar *>(widget)) {
        widget->setAccessibleName(QCoreApplication::translate("Accessibility", "标签页"));
    } else if (qobject_cast<QScrollArea *>(widget)) {
        widget->setAccessibleName(QCoreApplication::translate("Accessibility", "内容"));
    } else if (qobject_cast<QProgressBar *>(widget)) {
        widget->setAccessibleName(QCoreApplication::translate("Accessibility", "进度"));
    } else if (isField(widget) && !hasBuddy(widget)) {
        widget->setAccessibleName(nameOfField(widget));
    }
}

} // namespace

void installAccessibleRoles()
{
    // The toolkit keeps a factory once, however often it is installed.
    QAccessible::installFactory(roleFactory);
}

void setAccessibleRole(QWidget *widget, QAccessible::Role role)
{
    installAccessibleRoles();
    widget->setProperty(roleProperty, int(role));
    // With a screen reader about, the base class's constructor has made one of its own role.
    if (QAccessibleInterface *made = QAccessible::queryAccessibleInterface(widget))
        QAccessible::deleteAccessibleInterface(QAccessible::uniqueId(made));
}

void announceChosen(QWidget *card)
{
    QAccessible::State changed;
    changed.checked = true;
    QAccessibleStateChangeEvent event(card, changed);
    QAccessible::updateAccessibility(&event);
}

void completeAccessibleName(QWidget *widget)
{
    nameWidget(widget);
    // The list of a box is part of it on the accessibility bus, also while it is closed.
    if (auto *box = qobject_cast<QComboBox *>(widget)) {
        // The toolkit gives the chosen entry as its name there.
        if (box->accessibleDescription().isEmpty())
            box->setAccessibleDescription(box->accessibleName());
        if (QAccessible::isActive() && box->view()->accessibleName().isEmpty())
            box->view()->setAccessibleName(QCoreApplication::translate("Accessibility", "选项"));
    }
}

} // namespace ui::common
