#include "recoveryd/forensics/snapshotrecovery.h"

#include "common/outputfile.h"
#include "common/text.h"

#include <QDir>
#include <QFileInfo>

namespace services {
namespace recoveryd {

namespace {

bool writeRun(const Volume &volume, const FileLayout &layout, const BlockRun &run,
              OutputFile *output, SnapshotRecovery *result, QString *error)
{
    if (!output->seek(run.logical * layout.blockSize, error))
        return false;
    for (qint64 i = 0; i < run.count; ++i) {
        const qint64 left = layout.fileSize - (run.logical + i) * layout.blockSize;
        const qint64 length = qBound(qint64(0), left, layout.blockSize);
        QByteArray bytes =
            volume.read((run.physical + i) * layout.blockSize, layout.blockSize, nullptr);
        if (bytes.isEmpty()) {
            bytes = QByteArray(int(layout.blockSize), '\0');
            ++result->failedBlocks;
        }
        if (!output->write(bytes.constData(), length, error))
            return false;
        result->bytesWritten += length;
    }
    return true;
}

} // namespace

bool recoverSnapshot(const Volume &volume, const Snapshot &snapshot, const QString &outputDir,
                     SnapshotRecovery *result, QString *error)
{
    if (!makeOutputPath(outputDir)) {
        *error = QStringLiteral("无法创建输出目录 %1").arg(outputDir);
        return false;
    }
    const FileLayout &layout = snapshot.layout;
    const qint64 free = freeBytesAt(outputDir);
    if (free >= 0 && free < layout.blockCount() * layout.blockSize) {
        *error = QStringLiteral("目标位置空间不足：可用 %1").arg(sizeText(free));
        return false;
    }
    OutputFile output(outputDir, QStringLiteral(".morvane-%1").arg(newId()));
    if (!output.open(error))
        return false;
    output.giveToFolderOwner();
    for (const BlockRun &run : layout.runs)
        if (!writeRun(volume, layout, run, &output, result, error))
            return false;
    QString name = plainName(QFileInfo(snapshot.filePath).fileName());
    if (!output.setSize(layout.fileSize, error) || !output.sync(error) ||
        publishUnderFreeName(output, &name, error) != OutputFile::Publish::Done)
        return false;
    result->outputPath = QDir(outputDir).filePath(name);
    return true;
}

} // namespace recoveryd
} // namespace services
