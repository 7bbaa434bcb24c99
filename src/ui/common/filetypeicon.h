#pragma once

#include <QPixmap>
#include <QString>

namespace ui {
namespace common {

/// Glyph for the category of a file type, in logical pixels 14 by 14.
QPixmap iconForFileType(const QString &type);

} // namespace common
} // namespace ui
