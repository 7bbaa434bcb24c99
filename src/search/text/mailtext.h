#pragma once

#include <QByteArray>

namespace search::text {

class TextSink;

/// Writes subject, people, date, texts and the names of the attachments of one message.
void readMail(const QByteArray &bytes, TextSink *sink);

/// The messages of a mailbox file one after another.
void readMailbox(const QByteArray &bytes, TextSink *sink);

} // namespace search::text
