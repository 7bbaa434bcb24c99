#pragma once

#include <QHash>
#include <QMutex>
#include <QString>
#include <QVector>

namespace share {

/// Makes guessing passwords slow: after five wrong ones from an address within a minute, the
/// address has to wait, and after each further one twice as long. An hour without a wrong one ends
/// that. A right password clears nothing but itself, so that knowing one share's does not help to
/// guess another's. Any thread. Times are milliseconds of a clock that never goes back.
class LoginThrottle
{
public:
    struct Attempt
    {
        int waitSeconds = 0; ///< 0: the password may be tried.
        quint64 number = 0;
    };

    /// An attempt that may be made counts as wrong from here on, so that many at once gain nothing.
    Attempt begin(const QString &address, qint64 nowMs);
    /// The attempt's password was right.
    void succeed(const QString &address, const Attempt &attempt);

private:
    struct Wrong
    {
        quint64 number;
        qint64 timeMs;
    };
    struct Record
    {
        QVector<Wrong> wrong; ///< Within the last minute, the oldest first.
        int waits = 0;        ///< How often it had to wait.
        qint64 blockedUntil = 0;
        quint64 blockedBy = 0; ///< The number of an attempt.
        qint64 lastMs = 0;
    };

    void makeRoom(qint64 nowMs);

    QMutex m_mutex;
    QHash<QString, Record> m_records;
    quint64 m_lastNumber = 0;
};

} // namespace share
