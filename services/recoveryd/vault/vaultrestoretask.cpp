#include "recoveryd/vault/vaultrestoretask.h"

#include "common/outputfile.h"

#include <QCryptographicHash>
#include <QFile>

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kPiece = 1024 * 1024;

/// Holes count as the zeros that they read as.
void addZeros(QCryptographicHash &hash, qint64 length)
{
    static const QByteArray zeros(int(kPiece), '\0');
    for (; length > 0; length -= kPiece)
        hash.addData(zeros.constData(), int(qMin(length, kPiece)));
}

} // namespace

VaultRestoreTask::VaultRestoreTask(VaultRestorePlan plan, std::shared_ptr<WorkControl> control,
                                   Mailbox &inbox, VaultRestoreListener &listener)
    : m_plan(std::move(plan))
    , m_control(std::move(control))
    , m_inbox(inbox)
    , m_listener(listener)
{}

void VaultRestoreTask::run()
{
    for (const VaultRestoreItem &item : qAsConst(m_plan.items)) {
        ++m_number;
        const VaultRestoreResult result = restore(item);
        if (m_control->isStopped())
            return;
        m_inbox.post([&listener = m_listener, id = m_plan.taskId, result] {
            listener.onVaultFileRestored(id, result);
        });
    }
    m_inbox.post(
        [&listener = m_listener, id = m_plan.taskId] { listener.onVaultRestoreFinished(id); });
}

VaultRestoreResult VaultRestoreTask::restore(const VaultRestoreItem &item)
{
    VaultRestoreResult result{item.fileId, item.originalPath, QStringLiteral("failed"), {}, 0};
    if (!item.isKnown) {
        result.error = QStringLiteral("保护区中没有这个文件");
        return result;
    }
    const std::unique_ptr<VaultContent> content = m_plan.vault->open(item.fileId, &result.error);
    if (!content)
        return result;
    // Longer is what was still written to while it came under protection; shorter has lost bytes.
    if (content->size() < item.size) {
        result.error = QStringLiteral("内容只有 %1 字节，少于记录的 %2 字节")
                           .arg(content->size())
                           .arg(item.size);
        return result;
    }
    const bool mayRename = m_plan.conflict == VaultRestorePlan::Conflict::Rename;
    if (!mayRename && QFile::exists(m_plan.targetDir + QLatin1Char('/') + item.name)) {
        result.status = QStringLiteral("skipped");
        return result;
    }
    OutputFile output(m_plan.targetDir,
                      QStringLiteral(".morvane-%1-%2").arg(m_plan.taskId).arg(m_number));
    if (!copy(*content, output, &result.error))
        return result;
    QString name = item.name;
    switch (mayRename ? publishUnderFreeName(output, &name, &result.error)
                      : output.publish(name, &result.error)) {
    case OutputFile::Publish::Done:
        result.status = QStringLiteral("succeeded");
        result.writtenBytes = content->size();
        break;
    case OutputFile::Publish::Taken:
        if (!mayRename)
            result.status = QStringLiteral("skipped");
        break;
    case OutputFile::Publish::Failed:
        break;
    }
    return result;
}

bool VaultRestoreTask::copy(const VaultContent &content, OutputFile &output, QString *error) const
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    QString onDisk;
    qint64 at = 0;
    if (!output.open(error))
        return false;
    output.giveToFolderOwner();
    const Ranges ranges = content.dataRanges();
    for (const Range &range : ranges) {
        addZeros(hash, range.start - at);
        if (!copyRange(content, range, output, hash, error))
            return false;
        at = range.end();
    }
    addZeros(hash, content.size() - at);
    if (!output.setSize(content.size(), error) || !output.sync(error) ||
        !output.readBack(&onDisk, error))
        return false;
    if (onDisk == QString::fromLatin1(hash.result().toHex()))
        return true;
    *error = QStringLiteral("写出的内容与读取的不一致");
    return false;
}

bool VaultRestoreTask::copyRange(const VaultContent &content, const Range &range,
                                 OutputFile &output, QCryptographicHash &hash, QString *error) const
{
    if (!output.seek(range.start, error))
        return false;
    QByteArray piece(int(qMin(range.length, kPiece)), Qt::Uninitialized);
    for (qint64 at = range.start; at < range.end(); at += piece.size()) {
        piece.resize(int(qMin(range.end() - at, kPiece)));
        if (m_control->isStopped()) {
            *error = QStringLiteral("恢复已停止");
            return false;
        }
        if (!content.read(at, piece.data(), piece.size(), error) ||
            !output.write(piece.constData(), piece.size(), error))
            return false;
        hash.addData(piece);
    }
    return true;
}

} // namespace recoveryd
} // namespace services
