#pragma once

#include "recoveryd/devices/range.h"
#include "recoveryd/scan/finding.h"

#include <QJsonArray>
#include <QJsonObject>

namespace services {
namespace recoveryd {

/// A file that a scan has found, in the terms of the client, and where its bytes are.
struct FoundFile
{
    QString fileId;
    QString name;
    QString type;
    QString path;
    qint64 size = 0;
    QString probability;
    QString probabilityKey;
    int probScore = 0;
    QString deletionTime;
    double contiguity = 0.0;
    QString source;
    bool boundaryVerified = false;
    QString integrityLabel;
    QString integrityReason;
    Ranges ranges; ///< Bytes of the volume, in the order of the file.

    /// The object of scan.fileFound.
    QJsonObject toJson() const;
    /// The same with the ranges, for the store.
    QJsonObject toStored() const;
    /// False if the ranges are missing or do not make up the size.
    [[nodiscard]] static bool fromStored(const QJsonObject &object, FoundFile *file);
};

/// Describes the `number`-th file of a session.
FoundFile describe(const Finding &finding, int number);

} // namespace recoveryd
} // namespace services
