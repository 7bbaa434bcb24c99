#pragma once

#include "support/samplecontainers.h"

#include <QList>
#include <QString>

namespace samples {

/// One document on the disk and a text that its extraction finds.
struct Document
{
    QString fileName;
    QString expectedText;
};

/// True if LibreOffice is installed.
bool officeAvailable();

/// Writes documents of every format that text is extracted from into an existing folder. With
/// `withOffice` LibreOffice makes further ones, doc and xls among them, which takes some ten
/// seconds. What has been written is in `made`, also after a failure.
[[nodiscard]] bool writeDocuments(const QString &dir, bool withOffice, QList<Document> *made,
                                  QString *error);

/// Writes one file, or says why not.
[[nodiscard]] bool writeFile(const QString &path, const QByteArray &data, QString *error);

} // namespace samples
