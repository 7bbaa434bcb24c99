#pragma once

#include <QColor>

namespace ui {
namespace common {

/// Fixed colours of a state's dot, the same in both themes. Not for text: the state is written
/// beside the dot.
struct StatusColors
{
    static QColor off();
    static QColor good();
    static QColor waiting();
    static QColor broken();
};

} // namespace common
} // namespace ui
