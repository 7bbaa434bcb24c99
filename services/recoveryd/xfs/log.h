#pragma once

#include "recoveryd/xfs/geometry.h"
#include "recoveryd/xfs/view.h"

#include <QHash>
#include <QVector>

#include <functional>
#include <vector>

namespace services::recoveryd::xfs {

/// A change to the file system that is in the log as a whole: the pieces of its items, in order.
struct LogTransaction
{
    quint64 lsn = 0; ///< Where it begins: cycle of the log in the upper half, 512-byte block below.
    Order order = Order::Little;
    QVector<QByteArray> regions;
};

/// The log of a volume. Its area is a ring of records; each sector begins with the number of the
/// ring's cycle it was written in, whose place in the data the record's header keeps. What the head
/// has not yet reached again still holds the records of the cycle before: history that the file
/// system itself never looks at.
class Log
{
public:
    using GoesOn = std::function<bool(qint64 done)>; ///< False: end. `done` in bytes.
    using Takes = std::function<void(const LogTransaction &transaction)>;

    Log(const MediaReader &media, const Geometry &geometry);

    bool isInside() const { return m_size > 0; }
    qint64 size() const { return m_size; }

    struct State
    {
        bool isClean = true; ///< Unmounted properly, or never used.
        quint64 tail = 0;    ///< The oldest transaction that may not be on disk.
    };
    /// Reads little: the head is found by bisection.
    State state() const;
    /// All transactions from `tail` on, for a log that is not clean.
    void readPending(quint64 tail, const Takes &take) const;
    /// All transactions that are still there, ascending by their end. False if `goesOn` ended it.
    [[nodiscard]] bool readHistory(const Takes &take, const GoesOn &goesOn) const;

private:
    struct Record
    {
        quint64 lsn = 0;
        qint64 at = 0; ///< From the start of the log.
        quint64 tail = 0;
        int headerSize = 0;
        int length = 0;
        quint32 operations = 0;
        Order order = Order::Little;
    };
    /// Transactions whose end is not reached yet.
    struct Open
    {
        LogTransaction transaction;
        bool isContinued = false;
        qint64 bytes = 0;
    };
    using OpenTransactions = QHash<quint32, Open>;

    QByteArray readRing(qint64 at, qint64 length) const;
    quint32 cycleAt(qint64 sector) const;
    qint64 findHead() const;
    [[nodiscard]] bool parseRecord(const View &view, qint64 at, Record *record) const;
    [[nodiscard]] bool findLastRecord(Record *record) const;
    [[nodiscard]] bool isUnmount(const Record &record) const;
    QByteArray unpack(const Record &record) const;
    void readOperations(const Record &record, OpenTransactions *open, const Takes &take) const;
    [[nodiscard]] bool collect(std::vector<Record> *records, const GoesOn &goesOn) const;

    const MediaReader &m_media;
    qint64 m_start = -1;
    qint64 m_size = 0;
};

} // namespace services::recoveryd::xfs
