#pragma once

#include "recoveryd/recover/recoverytask.h"
#include "recoveryd/session/recordlog.h"

#include <QJsonArray>

namespace services::recoveryd {

/// What became of the files of one recovery, on disk as they are done, so that a recovery of any
/// size takes no memory and a killed one can be looked at. One thread.
class RecoveryLog
{
public:
    /// Files by their final status, and the bytes of those that were written.
    struct Counts
    {
        int succeeded = 0;
        int partial = 0;
        int failed = 0;
        int skipped = 0;
        qint64 writtenBytes = 0;

        void add(const QString &status, qint64 bytes);
        int total() const { return succeeded + partial + failed + skipped; }
    };

    [[nodiscard]] bool create(const QString &path, QString *error)
    {
        return m_log.openForAppending(path, error);
    }
    void append(const FileResult &result);
    [[nodiscard]] bool flush(QString *error) { return m_log.flush(false, error); }
    const Counts &counts() const { return m_counts; }

    /// The results from `offset` on, at most `limit` of them and about `maxBytes`; how many there
    /// are in all, and their counts. A missing file holds none. Any thread.
    struct Page
    {
        QJsonArray statuses;
        int total = 0;
        Counts counts;
    };
    [[nodiscard]] static bool read(const QString &path, int offset, int limit, qint64 maxBytes,
                                   Page *page, QString *error);

private:
    RecordLog m_log;
    Counts m_counts;
};

} // namespace services::recoveryd
