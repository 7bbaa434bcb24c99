#include "recoveryd/recover/recoverytask.h"

#include "common/outputfile.h"
#include "common/text.h"
#include "recoveryd/content/contentreader.h"

#include <QCryptographicHash>
#include <QDir>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kPiece = 1024 * 1024;
// Hashing the holes of a huge sparse file would take hours.
constexpr qint64 kMaxHashedHole = qint64(16) * 1024 * 1024 * 1024;
constexpr int kMaxAlternatives = 10000;

/// The first byte from `offset` on that the content holds; its size if there is none.
qint64 nextData(const FileContent &content, qint64 offset)
{
    if (offset < content.inlineBytes.size())
        return offset;
    qint64 next = content.size;
    const auto look = [&next, offset](qint64 start, qint64 length) {
        if (start + length > offset)
            next = qMin(next, qMax(start, offset));
    };
    const auto first = std::partition_point(
        content.extents.begin(), content.extents.end(),
        [offset](const Extent &extent) { return extent.logicalEnd() <= offset; });
    if (first != content.extents.end())
        look(first->logical, first->length);
    const auto packed = std::partition_point(
        content.packed.begin(), content.packed.end(),
        [offset](const PackedExtent &extent) { return extent.logical + extent.length <= offset; });
    if (packed != content.packed.end())
        look(packed->logical, packed->length);
    return next;
}

/// Makes the directory unless it is there. False if something else has the name.
bool makeDirectory(const QString &path, int *code)
{
    *code = makeOutputFolder(path);
    struct stat info = {};
    return *code == 0 ||
           (*code == EEXIST && ::lstat(QFile::encodeName(path).constData(), &info) == 0 &&
            S_ISDIR(info.st_mode));
}

} // namespace

QJsonObject FileResult::toJson() const
{
    return {{QStringLiteral("fileId"), fileId},
            {QStringLiteral("name"), name},
            {QStringLiteral("status"), status},
            {QStringLiteral("detail"), detail},
            {QStringLiteral("originalPath"), foundPath},
            {QStringLiteral("outputPath"), outputPath},
            {QStringLiteral("sha256"), sha256},
            {QStringLiteral("writtenBytes"), writtenBytes},
            {QStringLiteral("timeline"), QJsonArray::fromStringList(timeline)}};
}

RecoveryTask::RecoveryTask(const RecoveryPlan &plan, std::shared_ptr<WorkControl> control,
                           Mailbox &inbox, RecoveryListener &listener)
    : m_plan(plan)
    , m_control(std::move(control))
    , m_inbox(inbox)
    , m_listener(listener)
    , m_media(std::make_unique<MediaReader>(plan.volume, MediaReader::Policy::Exact))
{}

RecoveryTask::~RecoveryTask() = default;

QString RecoveryTask::temporaryPrefix(const QString &recoveryId)
{
    return QStringLiteral(".morvane-%1-").arg(recoveryId);
}

qint64 RecoveryTask::dataBytes(const FileContent &content)
{
    qint64 bytes = content.inlineBytes.size();
    for (const Extent &extent : content.extents)
        bytes += extent.length;
    for (const PackedExtent &extent : content.packed)
        bytes += extent.length;
    return qBound(qint64(0), bytes, content.size);
}

void RecoveryTask::note(FileResult *result, const QString &what)
{
    result->timeline.append(
        QStringLiteral("%1 %2").arg(timeText(QDateTime::currentDateTime()), what));
}

void RecoveryTask::run()
{
    QString error;
    if (!makeOutputPath(m_plan.outputDir)) {
        tellFinished(false, QStringLiteral("无法创建输出目录 %1").arg(m_plan.outputDir));
        return;
    }
    if (!m_plan.numbers.isEmpty() && !m_log.openForReading(m_plan.resultsPath, &error)) {
        tellFinished(false, error);
        return;
    }
    m_rules = nameRulesAt(m_plan.outputDir);
    for (const QString &id : qAsConst(m_plan.missingIds)) {
        FileResult result;
        result.fileId = id;
        result.status = QStringLiteral("failed");
        result.detail = QStringLiteral("扫描会话中没有这个文件");
        ++m_processed;
        tellStatus(result);
    }
    tellProgress();
    for (const int number : qAsConst(m_plan.numbers)) {
        if (m_control->isStopped())
            break;
        recover(number);
        tellProgress();
    }
    tellFinished(m_control->isStopped(), QString());
}

void RecoveryTask::tellProgress()
{
    const int total = m_plan.numbers.size() + m_plan.missingIds.size();
    const double percent =
        m_plan.totalBytes > 0 ? 100.0 * double(m_doneBytes) / double(m_plan.totalBytes) : 100.0;
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

void RecoveryTask::recover(int number)
{
    ResultRow row;
    FileResult result;
    result.fileId = fileIdOf(number);
    if (!m_log.read(number, &row)) {
        result.status = QStringLiteral("failed");
        result.detail = QStringLiteral("扫描结果已损坏");
        ++m_processed;
        tellStatus(result);
        return;
    }
    const FoundFile file = row.described();
    result.name = safeName(file.name, m_rules);
    result.foundPath = file.path;
    result.status = QStringLiteral("running");
    note(&result, QStringLiteral("开始恢复，共 %1").arg(sizeText(file.size)));
    tellStatus(result);

    const qint64 doneBefore = m_doneBytes;
    QString folder;
    if (!makeFolder(file.path, &folder, &result.detail)) {
        result.status = QStringLiteral("failed");
        note(&result, result.detail);
    } else if (m_plan.conflict == RecoveryPlan::Conflict::Skip &&
               QFile::exists(m_plan.outputDir + QLatin1Char('/') + folder + result.name)) {
        result.status = QStringLiteral("skipped");
        note(&result, QStringLiteral("目标目录已有同名文件，跳过"));
    } else if (writeFile(row, folder, &result) == Step::Stopped) {
        return; // A stopped file stays without a final status.
    }
    m_doneBytes = doneBefore + dataBytes(row.finding.content);
    ++m_processed;
    tellStatus(result);
}

bool RecoveryTask::makeFolder(const QString &foundPath, QString *folder, QString *error)
{
    const QStringList parts = safeFolders(foundPath, m_rules);
    QString wanted;
    folder->clear();
    for (const QString &part : parts) {
        wanted += part + QLatin1Char('/');
        const auto known = m_folders.constFind(wanted);
        if (known != m_folders.constEnd()) {
            *folder = *known;
            continue;
        }
        // A file of that name, or a link that leads elsewhere, is left alone.
        int code = EEXIST;
        QString made;
        for (int i = 0; code == EEXIST && i < kMaxAlternatives; ++i) {
            made = *folder + alternativeName(part, i, m_rules);
            if (makeDirectory(m_plan.outputDir + QLatin1Char('/') + made, &code))
                code = 0;
        }
        if (code != 0) {
            *error = QStringLiteral("无法创建目录 %1：%2")
                         .arg(made, QString::fromLocal8Bit(std::strerror(code)));
            return false;
        }
        *folder = made + QLatin1Char('/');
        m_folders.insert(wanted, *folder);
    }
    return true;
}

RecoveryTask::Step RecoveryTask::writeFile(const ResultRow &row, const QString &folder,
                                           FileResult *result)
{
    const FileContent &content = row.finding.content;
    OutputFile output(m_plan.outputDir,
                      temporaryPrefix(m_plan.recoveryId) + QString::number(m_processed));
    QCryptographicHash hash(QCryptographicHash::Sha256);
    const bool isHashed = content.size - dataBytes(content) <= kMaxHashedHole;
    ContentReader reader(*m_media, content);
    Step step = output.open(&result->detail) ? Step::Done : Step::Failed;
    if (step == Step::Done) {
        output.giveToFolderOwner();
        step = copyContent(content, reader, output, isHashed ? &hash : nullptr, result);
    }
    if (step == Step::Done && row.finding.modifiedMs != Finding::kUnknownTime)
        output.setModified(row.finding.modifiedMs);
    if (step == Step::Done && output.sync(&result->detail)) {
        note(result, QStringLiteral("已写出 %1").arg(sizeText(content.size)));
        verifyAndPublish(row, isHashed ? QString::fromLatin1(hash.result().toHex()) : QString(),
                         reader.lostBytes(), folder, output, result);
    } else if (step != Step::Stopped) {
        result->status = QStringLiteral("failed");
        note(result, result->detail);
    }
    return step;
}

RecoveryTask::Step RecoveryTask::copyContent(const FileContent &content, ContentReader &reader,
                                             OutputFile &output, QCryptographicHash *hash,
                                             FileResult *result)
{
    static const QByteArray zeros(int(kPiece), '\0');
    QByteArray piece(int(kPiece), Qt::Uninitialized);
    for (qint64 at = 0; at < content.size;) {
        if (m_control->isStopped())
            return Step::Stopped;
        const qint64 data = nextData(content, at);
        if (data > at) {
            for (qint64 hole = at; hash && hole < data; hole += kPiece)
                hash->addData(zeros.constData(), int(qMin(kPiece, data - hole)));
            at = data;
            if (!output.seek(at, &result->detail))
                return Step::Failed;
            continue;
        }
        const qint64 length = qMin(kPiece, content.size - at);
        reader.read(at, piece.data(), length);
        if (!output.write(piece.constData(), length, &result->detail))
            return Step::Failed;
        if (hash)
            hash->addData(piece.constData(), int(length));
        at += length;
        m_doneBytes += length;
        result->writtenBytes += length;
        if (length == kPiece)
            tellProgress();
    }
    return output.setSize(content.size, &result->detail) ? Step::Done : Step::Failed;
}

void RecoveryTask::verifyAndPublish(const ResultRow &row, const QString &sha256, qint64 lostBytes,
                                    const QString &folder, OutputFile &output, FileResult *result)
{
    const auto finish = [result](const char *status, const QString &what) {
        result->status = QLatin1String(status);
        result->detail = what;
        note(result, what);
    };
    QString onDisk;
    QString error;
    const qint64 data = dataBytes(row.finding.content);
    if (data > 0 && lostBytes >= data)
        return finish("failed", QStringLiteral("数据块全部无法读取"));
    if (sha256.isEmpty()) {
        note(result, QStringLiteral("稀疏文件过大，未做读回校验"));
    } else {
        if (!output.readBack(&onDisk, &error))
            return finish("failed", error);
        result->sha256 = onDisk;
        note(result, QStringLiteral("读回校验 SHA-256 %1").arg(onDisk));
    }
    if (!publish(folder, output, result))
        return;
    const qint64 taken = row.finding.takenBytes + row.damage.inUse + row.damage.overwritten;
    if (onDisk != sha256)
        return finish("partial", QStringLiteral("写出的内容与读取的不一致"));
    if (lostBytes > 0)
        return finish("partial", QStringLiteral("%1 无法读取，已填零").arg(sizeText(lostBytes)));
    if (!row.finding.isMapComplete)
        return finish("partial", data < row.finding.content.size
                                     ? QStringLiteral("一部分数据块的位置已丢失，已填零")
                                     : QStringLiteral("部分数据块的位置是推断的，请核对内容"));
    if (taken > 0)
        return finish("partial", QStringLiteral("%1 数据已被其他文件覆盖").arg(sizeText(taken)));
    note(result, QStringLiteral("已保存为 %1").arg(result->outputPath));
    result->status = QStringLiteral("success");
}

bool RecoveryTask::publish(const QString &folder, OutputFile &output, FileResult *result)
{
    const QString wanted = result->name;
    const bool maySkip = m_plan.conflict == RecoveryPlan::Conflict::Skip;
    const int tries = maySkip ? 1 : kMaxAlternatives;
    QString error = QStringLiteral("同名文件过多");
    auto published = OutputFile::Publish::Taken;
    for (int i = 0; published == OutputFile::Publish::Taken && i < tries; ++i) {
        result->name = alternativeName(wanted, i, m_rules);
        published = output.publish(folder + result->name, &error);
    }
    if (published == OutputFile::Publish::Done) {
        result->outputPath = m_plan.outputDir + QLatin1Char('/') + folder + result->name;
        if (!folder.isEmpty())
            syncDirectory(m_plan.outputDir + QLatin1Char('/') + folder);
        return true;
    }
    result->status = maySkip && published == OutputFile::Publish::Taken ? QStringLiteral("skipped")
                                                                        : QStringLiteral("failed");
    if (result->status == QLatin1String("failed"))
        result->detail = error;
    note(result, result->detail);
    return false;
}

} // namespace recoveryd
} // namespace services
