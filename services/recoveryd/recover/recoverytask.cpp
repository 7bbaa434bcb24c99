#include "recoveryd/recover/recoverytask.h"

#include "common/outputfile.h"
#include "common/text.h"

#include <QCryptographicHash>
#include <QDir>

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kPiece = 1024 * 1024;
constexpr qint64 kSector = 512;

} // namespace

QJsonObject FileResult::toJson() const
{
    return {{QStringLiteral("fileId"), fileId},
            {QStringLiteral("name"), name},
            {QStringLiteral("status"), status},
            {QStringLiteral("detail"), detail},
            {QStringLiteral("timeline"), QJsonArray::fromStringList(timeline)}};
}

RecoveryTask::RecoveryTask(const RecoveryPlan &plan, std::shared_ptr<WorkControl> control,
                           Mailbox &inbox, RecoveryListener &listener)
    : m_plan(plan)
    , m_control(std::move(control))
    , m_inbox(inbox)
    , m_listener(listener)
{
    for (const FoundFile &file : qAsConst(m_plan.files))
        m_totalBytes += file.size;
}

QString RecoveryTask::temporaryPrefix(const QString &recoveryId)
{
    return QStringLiteral(".morvane-%1-").arg(recoveryId);
}

void RecoveryTask::note(FileResult *result, const QString &what)
{
    result->timeline.append(
        QStringLiteral("%1 %2").arg(timeText(QDateTime::currentDateTime()), what));
}

void RecoveryTask::run()
{
    if (!QDir().mkpath(m_plan.outputDir)) {
        tellFinished(false, QStringLiteral("无法创建输出目录 %1").arg(m_plan.outputDir));
        return;
    }
    for (const QString &id : qAsConst(m_plan.missingIds)) {
        FileResult result;
        result.fileId = id;
        result.status = QStringLiteral("failed");
        result.detail = QStringLiteral("扫描会话中没有这个文件");
        ++m_processed;
        tellStatus(result);
    }
    tellProgress();
    for (const FoundFile &file : qAsConst(m_plan.files)) {
        if (m_control->isStopped())
            break;
        recover(file);
        tellProgress();
    }
    tellFinished(m_control->isStopped(), QString());
}

void RecoveryTask::tellProgress()
{
    const int total = m_plan.files.size() + m_plan.missingIds.size();
    const double percent =
        m_totalBytes > 0 ? 100.0 * double(m_doneBytes) / double(m_totalBytes) : 100.0;
    m_inbox.post([&listener = m_listener, id = m_plan.recoveryId,
                  percent = qBound(0.0, percent, 100.0), processed = m_processed,
                  total] { listener.onProgress(id, percent, processed, total); });
}

void RecoveryTask::tellStatus(const FileResult &result)
{
    m_inbox.post([&listener = m_listener, id = m_plan.recoveryId, result] {
        listener.onFileStatus(id, result);
    });
}

void RecoveryTask::tellFinished(bool wasStopped, const QString &error)
{
    m_inbox.post([&listener = m_listener, id = m_plan.recoveryId, wasStopped, error] {
        listener.onFinished(id, wasStopped, error);
    });
}

void RecoveryTask::recover(const FoundFile &file)
{
    FileResult result;
    result.fileId = file.fileId;
    result.name = plainName(file.name);
    result.status = QStringLiteral("running");
    note(&result, QStringLiteral("开始恢复，共 %1").arg(sizeText(file.size)));
    tellStatus(result);

    const qint64 doneBefore = m_doneBytes;
    if (m_plan.conflict == RecoveryPlan::Conflict::Skip &&
        QFile::exists(m_plan.outputDir + QLatin1Char('/') + result.name)) {
        result.status = QStringLiteral("skipped");
        note(&result, QStringLiteral("目标目录已有同名文件，跳过"));
    } else {
        OutputFile output(m_plan.outputDir,
                          temporaryPrefix(m_plan.recoveryId) + QString::number(m_processed));
        // A stopped file stays without a final status.
        if (writeFile(file, output, &result) == Step::Stopped)
            return;
    }
    m_doneBytes = doneBefore + file.size;
    ++m_processed;
    tellStatus(result);
}

RecoveryTask::Step RecoveryTask::writeFile(const FoundFile &file, OutputFile &output,
                                           FileResult *result)
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    m_unreadBytes = 0;
    Step step = output.open(&result->detail) ? Step::Done : Step::Failed;
    for (int i = 0; step == Step::Done && i < file.ranges.size(); ++i)
        step = copyRange(file.ranges.at(i), output, hash, result);
    if (step == Step::Done && output.sync(&result->detail)) {
        note(result, QStringLiteral("已写出 %1").arg(sizeText(file.size)));
        verifyAndPublish(file, QString::fromLatin1(hash.result().toHex()), output, result);
    } else if (step != Step::Stopped) {
        result->status = QStringLiteral("failed");
        note(result, result->detail);
    }
    return step;
}

RecoveryTask::Step RecoveryTask::copyRange(const Range &range, OutputFile &output,
                                           QCryptographicHash &hash, FileResult *result)
{
    QByteArray piece(int(kPiece), Qt::Uninitialized);
    for (qint64 at = range.start; at < range.end();) {
        if (m_control->isStopped())
            return Step::Stopped;
        const qint64 length = qMin(kPiece, range.end() - at);
        QString error;
        if (!m_plan.volume.read(at, piece.data(), length, &error)) {
            // Sector by sector, so that one bad place costs no more than itself.
            for (qint64 i = 0; i < length; i += kSector) {
                const qint64 part = qMin(kSector, length - i);
                if (m_plan.volume.read(at + i, piece.data() + i, part, nullptr))
                    continue;
                piece.replace(int(i), int(part), QByteArray(int(part), '\0'));
                m_unreadBytes += part;
            }
        }
        if (!output.write(piece.constData(), length, &result->detail))
            return Step::Failed;
        hash.addData(piece.constData(), int(length));
        at += length;
        m_doneBytes += length;
        result->writtenBytes += length;
        if (length == kPiece)
            tellProgress();
    }
    return Step::Done;
}

void RecoveryTask::verifyAndPublish(const FoundFile &file, const QString &sha256,
                                    OutputFile &output, FileResult *result)
{
    const auto finish = [result](const char *status, const QString &what) {
        result->status = QLatin1String(status);
        result->detail = what;
        note(result, what);
    };
    QString onDisk;
    QString error;
    if (m_unreadBytes == file.size)
        return finish("failed", QStringLiteral("数据块全部无法读取"));
    if (!output.readBack(&onDisk, &error))
        return finish("failed", error);
    note(result, QStringLiteral("读回校验 SHA-256 %1").arg(onDisk));

    const bool maySkip = m_plan.conflict == RecoveryPlan::Conflict::Skip;
    const OutputFile::Publish published = maySkip
                                              ? output.publish(result->name, &error)
                                              : publishUnderFreeName(output, &result->name, &error);
    if (published == OutputFile::Publish::Taken && maySkip)
        return finish("skipped", QString());
    if (published != OutputFile::Publish::Done)
        return finish("failed", error);
    if (onDisk != sha256)
        return finish("partial", QStringLiteral("写出的内容与读取的不一致"));
    if (m_unreadBytes > 0)
        return finish("partial",
                      QStringLiteral("%1 无法读取，已填零").arg(sizeText(m_unreadBytes)));
    note(result, QStringLiteral("已保存为 %1").arg(result->name));
    result->status = QStringLiteral("success");
}

} // namespace recoveryd
} // namespace services
