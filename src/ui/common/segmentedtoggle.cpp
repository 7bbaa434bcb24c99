#include "ui/common/segmentedtoggle.h"

#include "ui/common/accessibility.h"
#include "ui/common/keyroles.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QPushButton>

namespace ui {
namespace common {

namespace {

constexpr int kInset = 2;

} // namespace

SegmentedToggle::SegmentedToggle(const QStringList &labels, QWidget *parent)
    : QFrame(parent)
{
    setObjectName(QStringLiteral("SegmentedToggle"));
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(kInset, kInset, kInset, kInset);
    row->setSpacing(kInset);
    auto *group = new QButtonGroup(this);
    for (const QString &label : labels) {
        auto *button = new QPushButton(label, this);
        button->setCheckable(true);
        setTabStop(button);
        setAccessibleRole(button, QAccessible::RadioButton);
        button->setAutoDefault(false);
        button->setCursor(Qt::PointingHandCursor);
        button->setChecked(m_buttons.isEmpty());
        group->addButton(button, m_buttons.size());
        m_buttons.append(button);
        row->addWidget(button, 1);
    }
    // The group also moves the choice with the arrow keys, which clicks nothing.
    connect(group, QOverload<int, bool>::of(&QButtonGroup::buttonToggled), this,
            [this](int index, bool checked) {
                if (checked && index != m_current) {
                    m_current = index;
                    emit currentIndexChanged(index);
                }
            });
}

void SegmentedToggle::setCurrentIndex(int index)
{
    if (index < 0 || index >= m_buttons.size() || index == m_current)
        return;
    m_buttons.at(index)->setChecked(true);
}

} // namespace common
} // namespace ui
