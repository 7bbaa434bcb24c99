#include "recoveryd/fat/clustersweep.h"

namespace services::recoveryd::fat {

namespace {

constexpr qint64 kPiece = 4 * 1024 * 1024;

} // namespace

bool sweepClusters(const MediaReader &media, const ClusterGrid &grid, const Ranges &ranges,
                   ScanObserver &observer, qint64 *done,
                   const std::function<void(quint32 cluster, const char *bytes, int length)> &visit)
{
    // Of clusters larger than a piece only the beginnings are read.
    const qint64 step = qMax(kPiece, grid.clusterSize);
    QByteArray piece(int(kPiece), Qt::Uninitialized);
    for (const Range &range : ranges) {
        const quint32 last = grid.clusterAt(range.end() - 1);
        quint32 cluster = grid.clusterAt(range.start);
        if (cluster == 0 || last == 0)
            continue;
        const quint32 clusters = quint32(step / grid.clusterSize);
        for (; cluster <= last; cluster += clusters) {
            if (!observer.mayGoOn())
                return false;
            const quint32 count = qMin(clusters, last - cluster + 1);
            media.read(grid.offsetOf(cluster), piece.data(),
                       qMin(kPiece, count * grid.clusterSize));
            for (quint32 i = 0; i < count; ++i)
                visit(cluster + i, piece.constData() + i * grid.clusterSize,
                      int(qMin(kPiece, grid.clusterSize)));
            *done += count * grid.clusterSize;
            observer.advanced(*done);
        }
    }
    return true;
}

Ranges firstBytes(const Ranges &ranges, qint64 budget)
{
    Ranges first;
    for (const Range &range : ranges) {
        if (budget <= 0)
            break;
        first.append({range.start, qMin(range.length, budget)});
        budget -= range.length;
    }
    return first;
}

} // namespace services::recoveryd::fat
