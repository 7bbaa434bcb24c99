#pragma once

#include "recoveryd/btrfs/node.h"
#include "recoveryd/devices/mediareader.h"
#include "recoveryd/scan/scanner.h"

#include <QVector>

#include <functional>

namespace services::recoveryd::btrfs {

/// Looks for nodes of all file systems that a device ever had, at every 4 KiB of some ranges. Reads
/// each byte at most once, whatever ranges are asked for.
class NodeSweep
{
public:
    /// `format`: which of formats() the node has; `offset`: where it stands.
    using Visit = std::function<void(int format, qint64 offset, const NodeView &node)>;

    NodeSweep(const MediaReader &media, const Visit &visit)
        : m_media(media)
        , m_visit(visit)
    {}

    /// Nodes of this format are known beforehand.
    void addFormat(const NodeFormat &format) { m_formats.append(format); }
    const QVector<NodeFormat> &formats() const { return m_formats; }

    /// Sweeps what was not swept before. False if the observer ended it.
    [[nodiscard]] bool run(const Ranges &ranges, ScanObserver &observer);
    const Ranges &swept() const { return m_swept; }

private:
    [[nodiscard]] bool sweepRange(const Range &range, ScanObserver &observer);
    int formatOf(const char *bytes, qint64 left);

    const MediaReader &m_media;
    Visit m_visit;
    QVector<NodeFormat> m_formats;
    Ranges m_swept;
    qint64 m_done = 0;
};

} // namespace services::recoveryd::btrfs
