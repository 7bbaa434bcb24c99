#include "ui/common/utils/scanfilerules.h"

#include "core/jsonnumber.h"
#include "ui/common/utils/formatutils.h"

#include <QDateTime>
#include <QJsonObject>

#include <limits>

namespace ui {
namespace common {
namespace utils {

namespace {

constexpr double kContiguous = 0.95;
constexpr double kScattered = 0.5;

// Labels that rules derive or rest on.
const QString &directoryComplete()
{
    static const QString kLabel = QStringLiteral("目录完整");
    return kLabel;
}

const QString &containerVerified()
{
    static const QString kLabel = QStringLiteral("容器已验证");
    return kLabel;
}

const QString &boundaryVerified()
{
    static const QString kLabel = QStringLiteral("边界已验证");
    return kLabel;
}

struct Points
{
    QString word;
    int points;
};

template <int count>
int pointsFor(const Points (&table)[count], const QString &word)
{
    for (const Points &row : table) {
        if (row.word == word)
            return row.points;
    }
    return 0;
}

bool fromFileSystem(const ScanFile &file)
{
    return file.source == QLatin1String("metadata") || file.source == QLatin1String("journal");
}

bool isCarved(const ScanFile &file)
{
    return file.source == QLatin1String("carving");
}

bool hasPoorChance(const ScanFile &file)
{
    return file.probabilityKey == QLatin1String("poor") ||
           file.probabilityKey == QLatin1String("very_poor");
}

} // namespace

ScanFile scanFileFromJson(const QJsonObject &json)
{
    const auto text = [&json](const char *key) {
        return json.value(QLatin1String(key)).toString();
    };
    ScanFile file;
    file.fileId = text("fileId");
    file.name = text("name");
    file.size = text("size");
    file.type = text("type");
    file.path = text("path");
    file.probability = text("probability");
    file.probabilityKey = text("probabilityKey");
    file.deletionTime = text("deletionTime");
    file.source = text("source");
    file.integrityLabel = text("integrityLabel");
    file.integrityReason = text("integrityReason");
    const QJsonValue blockStart = json.value(QLatin1String("blockStart"));
    if (blockStart.isDouble())
        file.blockStart = QString::number(core::toInt64(blockStart));
    file.sizeBytes = qMax<qint64>(0, core::toInt64(json.value(QLatin1String("sizeBytes"))));
    file.contiguity = json.value(QLatin1String("contiguity")).toDouble();
    file.probScore = json.value(QLatin1String("probScore")).toInt();
    file.boundaryVerified = json.value(QLatin1String("boundaryVerified")).toBool();
    return file;
}

QString sourceWord(const QString &source)
{
    static const QString kWords[][2] = {
        {QStringLiteral("metadata"), QStringLiteral("元数据")},
        {QStringLiteral("journal"), QStringLiteral("日志恢复")},
        {QStringLiteral("carving"), QStringLiteral("特征扫描")},
        {QStringLiteral("hybrid"), QStringLiteral("混合")},
        {QString(), QStringLiteral("未知")},
    };
    for (const auto &row : kWords) {
        if (row[0] == source)
            return row[1];
    }
    return source;
}

QString integrityLabel(const ScanFile &file)
{
    if (!file.integrityLabel.isEmpty())
        return file.integrityLabel;
    static const QString kFragments = QStringLiteral("可能碎片");
    static const QString kHeaderOnly = QStringLiteral("仅头部命中");
    static const QString kUnchecked = QStringLiteral("待核验");
    if (fromFileSystem(file))
        return file.contiguity >= kContiguous ? directoryComplete() : kFragments;
    if (isCarved(file) && file.boundaryVerified)
        return boundaryVerified();
    if (isCarved(file) && hasPoorChance(file))
        return kHeaderOnly;
    return kUnchecked;
}

QString integrityReason(const ScanFile &file, const QString &label)
{
    if (!file.integrityReason.isEmpty())
        return file.integrityReason;
    // QStringLiteral keeps the text in the program: 100,000 rows share one.
    if (fromFileSystem(file) && label == directoryComplete())
        return QStringLiteral("来自 EXT4 元数据恢复，目录结构与数据块映射较完整");
    if (fromFileSystem(file) && file.contiguity < kContiguous)
        return QStringLiteral("来自 EXT4 元数据恢复，但数据块为多段分布，存在碎片风险");
    if (isCarved(file) && label == containerVerified())
        return QStringLiteral("已识别到完整容器边界，并对内部结构做了进一步判断");
    if (isCarved(file) && label == boundaryVerified())
        return QStringLiteral("已检测到可靠的文件结尾或长度边界，完整性较好");
    if (isCarved(file) && hasPoorChance(file))
        return QStringLiteral("仅识别到文件头特征，未能确认结尾或内部结构");
    return QStringLiteral("已检测到可能的文件头，仍需在恢复后进一步校验");
}

int recoverabilityScore(const ScanFile &file, const QString &label)
{
    static const Points kSources[] = {
        {QStringLiteral("journal"), 18},
        {QStringLiteral("metadata"), 15},
        {QStringLiteral("hybrid"), 10},
        {QStringLiteral("carving"), 4},
    };
    static const Points kLabels[] = {
        {directoryComplete(), 12},     {containerVerified(), 11},
        {boundaryVerified(), 10},      {QStringLiteral("可能碎片"), 3},
        {QStringLiteral("待核验"), 1}, {QStringLiteral("仅头部命中"), -8},
    };
    // Within bounds of an int whatever a service sends.
    const int base = qBound(-1000000, file.probScore, 1000000);
    int score = (base + pointsFor(kSources, file.source) + pointsFor(kLabels, label)) * 10;
    if (file.contiguity >= kContiguous)
        score += 8;
    else if (file.contiguity < kScattered)
        score -= 8;
    return score;
}

QString contiguityText(double contiguity)
{
    return contiguity >= kContiguous ? QStringLiteral("是（连续）")
                                     : QStringLiteral("否（存在碎片）");
}

int probabilityTone(const QString &probability)
{
    if (probability == QStringLiteral("一般"))
        return 1;
    if (probability == QStringLiteral("较差") || probability == QStringLiteral("极低"))
        return 2;
    return 0;
}

QString sizeText(const ScanFile &file)
{
    if (!file.size.isEmpty())
        return file.size;
    return file.sizeBytes > 0 ? formatByteSize(file.sizeBytes) : QStringLiteral("0");
}

QString blockStartText(const ScanFile &file)
{
    return file.blockStart.isEmpty() ? QString() : file.blockStart + QStringLiteral(" 扇区");
}

QString deletionTimeText(const QString &deletionTime)
{
    return deletionTime.isEmpty() ? QStringLiteral("未知") : deletionTime;
}

qint64 deletionTimeMs(const QString &deletionTime)
{
    // The ISO parser takes any separator between date and time and is far faster than one with a
    // format of its own.
    const QDateTime time = QDateTime::fromString(deletionTime, Qt::ISODate);
    return time.isValid() ? time.toMSecsSinceEpoch() : std::numeric_limits<qint64>::min();
}

QString directoryOf(const QString &path, const QString &name)
{
    const int slash = path.lastIndexOf(QLatin1Char('/'));
    const bool endsWithName = !name.isEmpty() && path.midRef(slash + 1) == name;
    return endsWithName ? path.left(qMax(0, slash)) : path;
}

} // namespace utils
} // namespace common
} // namespace ui
