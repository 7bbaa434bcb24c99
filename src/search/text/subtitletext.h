#pragma once

#include <QByteArray>

namespace search::text {

class TextSink;

/// Writes what is shown of subtitles, without their numbers, times and marks.
void readSubtitles(const QByteArray &bytes, TextSink *sink);

} // namespace search::text
