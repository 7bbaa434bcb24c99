#include "recoveryd/ntfs/findingmaker.h"

#include "recoveryd/ntfs/record.h"

namespace services::recoveryd::ntfs {

namespace {

constexpr quint32 kWofReparseTag = 0x80000017U;
const char kWofStream[] = "WofCompressedData";

/// Streams in which Windows keeps notes of its own.
bool isSystemStream(const QByteArray &name)
{
    static const char *const kNames[] = {"Zone.Identifier", "SmartScreen", "AFP_AfpInfo",
                                         "encryptable", kWofStream};
    if (name.startsWith('$') || name.startsWith('\x05'))
        return true;
    for (const char *systemName : kNames)
        if (name == systemName)
            return true;
    return false;
}

/// A symbolic link, device or the like as its drivers write it into a small system file.
bool isSpecialFile(const Stream &stream)
{
    return stream.isResident && stream.value.startsWith(QByteArray("IntxLNK\1", 8));
}

bool isWanted(const Stream &stream, const FileFacts &facts, Era era)
{
    if (!stream.name.isEmpty())
        return stream.size > 0 && !isSystemStream(stream.name);
    if (isSpecialFile(stream))
        return false;
    return stream.size != 0 || (era == Era::Existing && facts.reparseTag == 0);
}

quint64 recencyOf(const FileFacts &facts, Era era)
{
    const quint64 time = qMax(facts.changedTime, facts.createdTime);
    return (quint64(era) << 60) | (time & ((quint64(1) << 60) - 1));
}

} // namespace

QVector<Finding> makeFindings(const FileFacts &facts, const Finding &place, Era era,
                              const VolumeScale &scale)
{
    QVector<Finding> findings;
    for (const Stream &stream : facts.streams) {
        if (!isWanted(stream, facts, era))
            continue;
        Finding finding = place;
        bool isMapComplete = false;
        finding.content = contentOf(stream, scale.clusterSize, scale.volumeSize, &isMapComplete);
        finding.isSizeExact = stream.isSizeExact && stream.size >= 0;
        if (!finding.isSizeExact && finding.content.size == 0)
            continue;
        if (!stream.name.isEmpty() && !finding.name.isEmpty())
            finding.name += ':' + stream.name;
        finding.modifiedMs = msFromFileTime(facts.modifiedTime);
        finding.isDeleted = era != Era::Existing;
        finding.isMapComplete = isMapComplete;
        finding.recency = recencyOf(facts, era);
        // The bytes are there, but are of no use without the user's key, or in a packing that is
        // not supported.
        if (stream.isEncrypted() || (stream.name.isEmpty() && facts.reparseTag == kWofReparseTag &&
                                     facts.stream(kWofStream)))
            finding.contentCheck = Finding::Check::Unusable;
        findings.append(finding);
    }
    return findings;
}

} // namespace services::recoveryd::ntfs
