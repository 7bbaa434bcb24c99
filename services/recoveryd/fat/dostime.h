#pragma once

#include "recoveryd/scan/finding.h"

#include <QDateTime>

namespace services::recoveryd::fat {

/// Milliseconds since the epoch of a date and a time as FAT and exFAT write them, in the given time
/// zone; `hundredths` up to 199 are added. Unknown if it is no time.
inline qint64 msOfDosTime(quint16 date, quint16 time, quint8 hundredths, Qt::TimeSpec zone)
{
    const QDate day(1980 + (date >> 9), date >> 5 & 0xF, date & 0x1F);
    const QTime clock(time >> 11, time >> 5 & 0x3F, (time & 0x1F) * 2);
    if (!day.isValid() || !clock.isValid())
        return Finding::kUnknownTime;
    return QDateTime(day, clock, zone).toMSecsSinceEpoch() + qMin(int(hundredths), 199) * 10;
}

} // namespace services::recoveryd::fat
