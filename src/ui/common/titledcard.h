#pragma once

#include <QString>

class QBoxLayout;
class QVBoxLayout;

namespace ui {
namespace common {

/// Adds a card with a section title and, unless it is empty, a hint below it to a widget's layout.
/// What else the card holds goes into the layout returned.
QVBoxLayout *addTitledCard(QBoxLayout *column, const QString &title,
                           const QString &hint = QString());

} // namespace common
} // namespace ui
