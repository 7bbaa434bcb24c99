#pragma once

#include "ui/common/statwidgets.h"

class QPainter;

namespace ui {
namespace common {

/// Room that a pill with this text takes, in logical pixels.
QSize pillSize(const QString &text);
/// Paints a StatusPill for a delegate: at the left of `area`, centred in its height, shortened if
/// it doesn't fit.
void paintPill(QPainter *painter, const QRect &area, const QString &text, StatusPill::Type type);

} // namespace common
} // namespace ui
