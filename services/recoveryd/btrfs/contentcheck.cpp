#include "recoveryd/btrfs/contentcheck.h"

namespace services::recoveryd::btrfs {

namespace {

constexpr qint64 kStretch = 1024 * 1024;
constexpr int kMaxSamples = 64; ///< Extents of one file beyond the budget.

/// The bytes of an extent that the file's content depends on.
std::pair<quint64, qint64> stretchOf(const ExtentItem &extent)
{
    if (extent.compression != 0)
        return {extent.address, qint64(extent.storedLength)};
    return {extent.address + extent.skip, qint64(extent.length)};
}

bool hasData(const ExtentItem &extent)
{
    return extent.kind == ExtentItem::Kind::Regular && extent.address != 0;
}

} // namespace

Finding::Check ContentCheck::check(const FileVersion &version)
{
    const NodeFormat &format = m_remains.format();
    qint64 total = 0;
    for (const ExtentItem &extent : version.extents)
        if (hasData(extent))
            total += stretchOf(extent).second;
    if (total == 0)
        return version.facts.size > 0 && version.isComplete && canCheck(format.checksum)
                   ? Finding::Check::Passed // its bytes stand in a leaf that was checked
                   : Finding::Check::None;
    if (!canCheck(format.checksum) || m_remains.checksums().isEmpty())
        return Finding::Check::None;
    const bool isAll = total <= m_budget;
    if (isAll)
        m_budget -= total;
    Outcome outcome;
    outcome.isSure = isAll && version.isComplete;
    int samples = 0;
    for (const ExtentItem &extent : version.extents) {
        if (!hasData(extent) || outcome.isWrong || (!isAll && ++samples > kMaxSamples))
            continue;
        const auto stretch = stretchOf(extent);
        checkExtent(stretch.first, stretch.second, extent.generation, isAll, &outcome);
    }
    if (outcome.isWrong)
        return Finding::Check::Failed;
    return outcome.isSure ? Finding::Check::Passed : Finding::Check::None;
}

void ContentCheck::checkExtent(quint64 address, qint64 length, quint64 generation, bool isAll,
                               Outcome *outcome)
{
    const qint64 sector = m_remains.format().sectorSize;
    const qint64 sectors = length / sector;
    if (address % quint64(sector) != 0 || sectors == 0) {
        outcome->isSure = false;
        return;
    }
    if (!isAll) {
        checkStretch(address, 1, generation, outcome);
        checkStretch(address + quint64((sectors - 1) * sector), 1, generation, outcome);
        return;
    }
    for (qint64 at = 0; at < sectors && !outcome->isWrong; at += kStretch / sector)
        checkStretch(address + quint64(at * sector), int(qMin(kStretch / sector, sectors - at)),
                     generation, outcome);
}

void ContentCheck::checkStretch(quint64 address, int sectors, quint64 generation, Outcome *outcome)
{
    const NodeFormat &format = m_remains.format();
    const int size = checksumSize(format.checksum);
    QVector<bool> isKnown;
    const QByteArray sums =
        m_remains.checksums().sums(m_media, format, address, sectors, generation, &isKnown);
    QByteArray bytes(sectors * format.sectorSize, '\0');
    qint64 filled = 0;
    for (const ChunkMap::Part &part : m_remains.chunks().map(address, bytes.size())) {
        if (part.physical < 0)
            outcome->isSure = false;
        else if (m_media.read(part.physical, bytes.data() + filled, part.length) > 0)
            outcome->isSure = false; // what cannot be read is told by the reader
        filled += part.length;
    }
    if (!outcome->isSure && isKnown.count(true) == 0)
        return;
    for (int i = 0; i < sectors; ++i) {
        if (!isKnown.at(i)) {
            outcome->isSure = false;
            continue;
        }
        if (!matchesChecksum(format.checksum, bytes.constData() + i * format.sectorSize,
                             format.sectorSize, sums.constData() + i * size)) {
            outcome->isWrong = true;
            return;
        }
    }
}

} // namespace services::recoveryd::btrfs
