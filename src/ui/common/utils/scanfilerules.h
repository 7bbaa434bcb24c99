#pragma once

#include <QString>

class QJsonObject;

namespace ui {
namespace common {
namespace utils {

/// A found file as the recovery service describes it. A value that is missing or unreadable is
/// empty or 0.
struct ScanFile
{
    QString fileId; ///< Names the file in a recovery request.
    QString name;
    QString size; ///< For people, as in "12.4 MB".
    QString type; ///< Upper-case type word.
    QString path;
    QString probability;    ///< For people.
    QString probabilityKey; ///< Machine word, as in "very_poor".
    QString deletionTime;
    QString source; ///< "metadata", "journal", "carving", "hybrid".
    QString integrityLabel;
    QString integrityReason;
    QString blockStart; ///< First sector as a number; empty if not told.
    qint64 sizeBytes = 0;
    double contiguity = 0.0; ///< 0 to 1: contiguous share of the data.
    int probScore = 0;
    bool boundaryVerified = false; ///< Carving only: the end of the file was found.
};

ScanFile scanFileFromJson(const QJsonObject &json);

/// The source in the user's words; a word that is not known as it stands.
QString sourceWord(const QString &source);
/// The service's own label, else the one that follows from source and findings.
QString integrityLabel(const ScanFile &file);
/// What the label rests on: the service's words, else a sentence by source and `label`.
QString integrityReason(const ScanFile &file, const QString &label);
/// Orders files by their chance of recovery; higher is better.
int recoverabilityScore(const ScanFile &file, const QString &label);
QString contiguityText(double contiguity);
/// Number of the pill style for a chance of recovery: 0 good, 1 fair, 2 bad.
int probabilityTone(const QString &probability);
/// The size as told; made from the bytes if only those are told, "0" without either.
QString sizeText(const ScanFile &file);
/// "2048 扇区"; empty if not told.
QString blockStartText(const ScanFile &file);
/// The deletion time as told, or "未知".
QString deletionTimeText(const QString &deletionTime);
/// Milliseconds since the epoch of "yyyy-MM-dd HH:mm:ss" in local time or of an ISO date; the
/// smallest 64-bit value for any other text.
qint64 deletionTimeMs(const QString &deletionTime);
/// Directory part of a file's path: without the last component if that is the file's name.
QString directoryOf(const QString &path, const QString &name);

} // namespace utils
} // namespace common
} // namespace ui
