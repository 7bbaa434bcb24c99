#pragma once

#include "recoveryd/devices/range.h"
#include "recoveryd/scan/finding.h"
#include "recoveryd/scan/grading.h"

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
    QString path; ///< With the name; begins with a slash.
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
    qint64 firstByte = 0; ///< Of its data on the scanned device.
    Ranges ranges;        ///< Bytes of the scanned device, ascending.

    /// The object of scan.fileFound.
    QJsonObject toJson() const;
};

/// Describes the `number`-th file of a session, counted from 1.
FoundFile describe(const Finding &finding, int number, const Damage &damage = Damage());

/// The id of the `number`-th file of a session, and back; 0 for what is no such id. Ids of earlier
/// versions had another first letter.
QString fileIdOf(int number);
int numberOf(const QString &fileId);

} // namespace recoveryd
} // namespace services
