#include "recoveryd/forensics/blockcheck.h"

#include <QCryptographicHash>

#include <algorithm>

namespace services {
namespace recoveryd {

namespace {

QString sha256(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

bool isAllZero(const QByteArray &bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](char c) { return c == 0; });
}

/// Adds zeros from byte `from` of the file up to byte `to`.
void addHole(QCryptographicHash *hash, qint64 from, qint64 to)
{
    static const QByteArray zeros(65536, '\0');
    for (; from < to; from += zeros.size())
        hash->addData(zeros.constData(), int(qMin(qint64(zeros.size()), to - from)));
}

/// Whether the inode still stands for the same file. Where nothing is known of it, it has not
/// changed as far as can be told.
bool isInodeChanged(const Volume &volume, const FileLayout &layout)
{
    ExtVolume ext;
    return !layout.inode.isEmpty() &&
           (!ext.open(volume, nullptr) ||
            inodeMark(ext.readInode(quint32(layout.inodeNumber), nullptr)) != layout.inode);
}

} // namespace

bool hashBlocks(const Volume &volume, Snapshot *snapshot, QString *error)
{
    const FileLayout &layout = snapshot->layout;
    QCryptographicHash whole(QCryptographicHash::Sha256);
    qint64 end = 0; // of the file, so far
    snapshot->blockSha256.clear();
    for (const BlockRun &run : layout.runs) {
        const qint64 start = qMin(run.logical * layout.blockSize, layout.fileSize);
        addHole(&whole, end, start);
        end = qMax(end, start);
        for (qint64 i = 0; i < run.count; ++i) {
            const QByteArray bytes =
                volume.read((run.physical + i) * layout.blockSize, layout.blockSize, error);
            if (bytes.isEmpty())
                return false;
            snapshot->blockSha256.append(sha256(bytes));
            const qint64 length = qBound(qint64(0), layout.fileSize - end, layout.blockSize);
            whole.addData(bytes.constData(), int(length));
            end += length;
        }
    }
    addHole(&whole, end, layout.fileSize);
    snapshot->fileSha256 = QString::fromLatin1(whole.result().toHex());
    return true;
}

double Verification::integrityPercent() const
{
    const int total = unchangedBlocks + changedBlocks + zeroedBlocks;
    return total > 0 ? 100.0 * unchangedBlocks / total : 100.0;
}

QJsonObject Verification::summary() const
{
    return {{QStringLiteral("verificationId"), verificationId},
            {QStringLiteral("verifyTime"), verifyTime},
            {QStringLiteral("integrityPercent"), integrityPercent()},
            {QStringLiteral("unchangedBlocks"), unchangedBlocks},
            {QStringLiteral("changedBlocks"), changedBlocks},
            {QStringLiteral("zeroedBlocks"), zeroedBlocks},
            {QStringLiteral("inodeChanged"), inodeChanged},
            {QStringLiteral("note"), note}};
}

QJsonObject Verification::toJson() const
{
    QJsonObject object = summary();
    object.insert(QStringLiteral("blockDetails"), blockDetails);
    return object;
}

Verification verifyBlocks(const Volume &volume, const Snapshot &snapshot)
{
    const FileLayout &layout = snapshot.layout;
    Verification found;
    volume.image()->dropCache();
    int index = 0;
    for (const BlockRun &run : layout.runs) {
        for (qint64 i = 0; i < run.count; ++i, ++index) {
            const qint64 physical = run.physical + i;
            const QByteArray bytes =
                volume.read(physical * layout.blockSize, layout.blockSize, nullptr);
            const QString original = snapshot.blockSha256.at(index);
            const QString current = bytes.isEmpty() ? QString() : sha256(bytes);
            const bool isUnchanged = current == original;
            const bool isZeroed = !isUnchanged && !bytes.isEmpty() && isAllZero(bytes);
            (isUnchanged ? found.unchangedBlocks
             : isZeroed  ? found.zeroedBlocks
                         : found.changedBlocks)++;
            found.blockDetails.append(
                QJsonObject{{QStringLiteral("blockIndex"), index},
                            {QStringLiteral("physicalBlock"), physical},
                            {QStringLiteral("status"), isUnchanged ? QStringLiteral("unchanged")
                                                       : isZeroed  ? QStringLiteral("zeroed")
                                                                   : QStringLiteral("changed")},
                            {QStringLiteral("originalSha256"), original},
                            {QStringLiteral("currentSha256"), current}});
        }
    }
    found.inodeChanged = isInodeChanged(volume, layout);
    return found;
}

} // namespace recoveryd
} // namespace services
