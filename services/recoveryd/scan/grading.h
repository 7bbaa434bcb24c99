#pragma once

#include "recoveryd/scan/finding.h"

#include <QString>

namespace services::recoveryd {

/// Objections to a finding that its scanner could not know. Bytes of its stored ranges.
struct Damage
{
    qint64 inUse = 0;       ///< In blocks that a live file system uses now.
    qint64 overwritten = 0; ///< Claimed by another file that had the blocks later.
    qint64 unreadable = 0;  ///< The medium did not return them.

    bool isNone() const { return inUse == 0 && overwritten == 0 && unreadable == 0; }
};

/// A finding in the terms of the client.
struct Grade
{
    QString probability;    ///< Shown: "极高", "较好", "一般", "较差" or "极低".
    QString probabilityKey; ///< "excellent", "good", "fair", "poor" or "very_poor".
    int score = 0;          ///< 0 to 100.
    double contiguity = 0;  ///< 0 to 1.
    bool isBoundaryVerified = false;
    QString label;
    QString reason;
};

/// The grade that the facts allow. "极高" and the labels "目录完整", "边界已验证" and "容器已验证"
/// promise that all bytes are right, so a single objection rules them out. Pure.
Grade gradeOf(const Finding &finding, const Damage &damage);

/// Whether nothing is known against the bytes of the finding: its size and its map are complete,
/// and no block was used again. Such a file's blocks need no second look.
bool isWhole(const Finding &finding, const Damage &damage);

/// "metadata", "journal", "hybrid" or "carving".
QString sourceWord(FindingSource source);

} // namespace services::recoveryd
