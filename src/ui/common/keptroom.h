#pragma once

#include <QSizePolicy>
#include <QWidget>

namespace ui {
namespace common {

/// A hidden widget keeps its place in the layout, so that nothing moves as it comes and goes.
inline void keepRoomWhenHidden(QWidget *widget)
{
    QSizePolicy policy = widget->sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    widget->setSizePolicy(policy);
}

} // namespace common
} // namespace ui
