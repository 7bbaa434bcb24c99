#pragma once

#include <QByteArray>

namespace search::text {

class TextSink;

/// Writes the slides of a binary presentation, hidden ones too, then their notes and comments;
/// masters are left out. `user` is the stream "Current User", which tells what of `stream` is in
/// force: saving in haste leaves old slides behind.
void readPpt(const QByteArray &stream, const QByteArray &user, TextSink *sink);

} // namespace search::text
