#pragma once

#include <QColor>
#include <QIcon>
#include <QString>

namespace ui {
namespace common {
class ThemeColors;
}
} // namespace ui

namespace diskanalyzer {

/// What a file holds, by its extension.
enum class FileKind { Other, Office, Archive, Code, Audio, Video, Image, Text, Database };

/// `extension` without the dot, in any case.
FileKind fileKindForExtension(const QString &extension);
/// Glyph of the icon font.
QString iconGlyphForExtension(const QString &extension);
QColor colorForExtension(const QString &extension, const ui::common::ThemeColors &theme);
/// The glyph in its colour; made once a kind. GUI thread only.
QIcon iconForExtension(const QString &extension);

} // namespace diskanalyzer
