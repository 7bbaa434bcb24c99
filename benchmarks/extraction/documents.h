#pragma once

#include <QString>

/// Writes documents of several formats with `words` words each, in equal numbers: pdf, rtf, docx
/// and txt, as the real tools read them. False with a message on failure.
bool writeDocuments(const QString &dir, int count, int words, QString *error);
