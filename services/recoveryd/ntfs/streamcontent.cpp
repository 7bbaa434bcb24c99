#include "recoveryd/ntfs/filefacts.h"

namespace services::recoveryd::ntfs {

namespace {

constexpr qint64 kMaxUnit = 16 * 1024 * 1024;

/// Walks the runs of a stream in clusters.
class RunCursor
{
public:
    explicit RunCursor(const QVector<Run> &runs)
        : m_runs(runs)
    {}

    bool atEnd() const { return m_index >= m_runs.size(); }
    qint64 vcn() const { return m_runs.at(m_index).vcn + m_used; }

    /// The rest of the current run, cut at `limit`.
    Run take(qint64 limit)
    {
        const Run &run = m_runs.at(m_index);
        const qint64 count = qMin(run.count - m_used, limit);
        const Run part = {run.vcn + m_used, run.lcn == Run::kHole ? Run::kHole : run.lcn + m_used,
                          count};
        m_used += count;
        if (m_used == run.count) {
            ++m_index;
            m_used = 0;
        }
        return part;
    }

private:
    const QVector<Run> &m_runs;
    int m_index = 0;
    qint64 m_used = 0;
};

class ContentBuilder
{
public:
    ContentBuilder(const Stream &stream, qint64 clusterSize, qint64 volumeSize)
        : m_stream(stream)
        , m_clusterSize(clusterSize)
        , m_volumeSize(volumeSize)
    {
        m_content.size = stream.size >= 0 ? stream.size : mappedSize();
        m_end = stream.size >= 0 ? qBound(qint64(0), stream.initialisedSize, stream.size)
                                 : m_content.size;
    }

    bool isComplete() const { return m_isComplete; }
    const FileContent &content() const { return m_content; }

    void addPlain()
    {
        for (const Run &run : m_stream.runs)
            addRun(run);
    }

    /// A compression unit is stored plain if all its clusters are there, is a hole if none is, and
    /// is packed into the first ones otherwise.
    void addCompressed()
    {
        const qint64 unit = qint64(1) << m_stream.compressionUnit;
        RunCursor cursor(m_stream.runs);
        while (!cursor.atEnd() && cursor.vcn() < (m_end + m_clusterSize - 1) / m_clusterSize) {
            const qint64 start = cursor.vcn() / unit * unit;
            if (skipHoles(start, unit, &cursor))
                continue;
            QVector<Run> stored;
            qint64 clusters = 0;
            while (!cursor.atEnd() && cursor.vcn() < start + unit) {
                const Run part = cursor.take(start + unit - cursor.vcn());
                if (part.lcn == Run::kHole)
                    continue;
                stored.append(part);
                clusters += part.count;
            }
            addUnit(start, unit, clusters, stored);
        }
    }

private:
    qint64 mappedSize() const
    {
        const qint64 clusters = m_stream.runs.isEmpty() ? 0 : m_stream.runs.last().vcnEnd();
        return qMin(clusters * m_clusterSize, m_volumeSize);
    }

    /// A hole over whole units is passed at once: a sparse file may claim 2^50 of them.
    static bool skipHoles(qint64 start, qint64 unit, RunCursor *cursor)
    {
        if (cursor->vcn() != start)
            return false;
        RunCursor ahead = *cursor;
        const Run part = ahead.take(std::numeric_limits<qint64>::max());
        if (part.lcn != Run::kHole || part.count < unit)
            return false;
        cursor->take(part.count / unit * unit);
        return true;
    }

    void addUnit(qint64 vcn, qint64 unit, qint64 clusters, const QVector<Run> &stored)
    {
        if (clusters == unit) {
            for (const Run &run : stored)
                addRun(run);
            return;
        }
        PackedExtent extent;
        extent.codec = Codec::Lznt1;
        extent.logical = vcn * m_clusterSize;
        extent.unpacked = unit * m_clusterSize;
        extent.length = qMin(extent.unpacked, m_end - extent.logical);
        for (const Run &run : stored)
            if (isInside(run))
                extent.stored.append({run.lcn * m_clusterSize, run.count * m_clusterSize});
        if (extent.length > 0 && !stored.isEmpty())
            m_content.packed.append(extent);
    }

    void addRun(const Run &run)
    {
        if (run.lcn == Run::kHole || !isInside(run) || run.vcn > m_end / m_clusterSize)
            return;
        const qint64 logical = run.vcn * m_clusterSize;
        m_content.append(logical, run.lcn * m_clusterSize,
                         qMin(run.count * m_clusterSize, m_end - logical));
    }

    bool isInside(const Run &run)
    {
        const qint64 clusters = m_volumeSize / m_clusterSize;
        if (run.count <= clusters && run.lcn <= clusters - run.count)
            return true;
        m_isComplete = false;
        return false;
    }

    const Stream &m_stream;
    const qint64 m_clusterSize;
    const qint64 m_volumeSize;
    qint64 m_end = 0; ///< Behind it the stream was never written.
    FileContent m_content;
    bool m_isComplete = true;
};

} // namespace

FileContent contentOf(const Stream &stream, qint64 clusterSize, qint64 volumeSize,
                      bool *isMapComplete)
{
    *isMapComplete = stream.isMapComplete;
    FileContent content;
    if (stream.isResident) {
        content.size = stream.value.size();
        content.inlineBytes = stream.value;
        return content;
    }
    ContentBuilder builder(stream, clusterSize, volumeSize);
    if (!stream.isCompressed())
        builder.addPlain();
    else if (stream.compressionUnit < 20 && (clusterSize << stream.compressionUnit) <= kMaxUnit)
        builder.addCompressed();
    else
        *isMapComplete = false;
    content = builder.content();
    const qint64 mapped = stream.runs.isEmpty() ? 0 : stream.runs.last().vcnEnd();
    if (!builder.isComplete() || (content.size > 0 && (content.size - 1) / clusterSize >= mapped))
        *isMapComplete = false;
    return content;
}

} // namespace services::recoveryd::ntfs
