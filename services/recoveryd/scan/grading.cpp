#include "recoveryd/scan/grading.h"

#include "common/text.h"

#include <algorithm>

namespace services::recoveryd {

namespace {

struct Level
{
    const char *word;
    const char *key;
    int score;
};

constexpr Level kVerified = {"极高", "excellent", 98};
constexpr Level kExcellent = {"极高", "excellent", 95};
constexpr Level kGood = {"较好", "good", 80};
constexpr Level kUnsure = {"较好", "good", 65};
constexpr Level kFair = {"一般", "fair", 50};
constexpr Level kPoor = {"较差", "poor", 20};
constexpr Level kHopeless = {"极低", "very_poor", 5};

const char *const kWholeLabel = "目录完整";
const char *const kContainerLabel = "容器已验证";

// Up to this share of damaged bytes most of a document can still be read.
constexpr double kLittle = 0.1;
constexpr double kHalf = 0.5;

bool hasVerifiedEnd(const Finding &finding)
{
    return hasEnd(finding.evidence);
}

bool isFromContent(const Finding &finding)
{
    return finding.source == FindingSource::Carving || finding.source == FindingSource::Hybrid;
}

qint64 storedBytes(const FileContent &content)
{
    return totalLength(content.storedRanges());
}

/// Bytes of the file that some extent, compressed extent or the metadata hold.
qint64 mappedBytes(const FileContent &content)
{
    qint64 mapped = qMin(qint64(content.inlineBytes.size()), content.size);
    for (const Extent &extent : content.extents)
        mapped += extent.length;
    for (const PackedExtent &extent : content.packed)
        mapped += extent.length;
    return qMin(mapped, content.size);
}

/// The share of the stored bytes in the longest run.
double contiguityOf(const FileContent &content)
{
    const Ranges ranges = content.storedRanges();
    qint64 longest = 0;
    for (const Range &range : ranges)
        longest = qMax(longest, range.length);
    // Runs that touch but are not in the file's order are several runs all the same.
    if (ranges.size() < content.extents.size()) {
        longest = 0;
        for (const Extent &extent : content.extents)
            longest = qMax(longest, extent.length);
    }
    const qint64 total = totalLength(ranges);
    return total > 0 ? double(longest) / double(total) : 1.0;
}

void set(Grade *grade, const Level &level, const QString &label, const QString &reason)
{
    grade->probability = QString::fromUtf8(level.word);
    grade->probabilityKey = QLatin1String(level.key);
    grade->score = level.score;
    grade->label = label;
    grade->reason = reason;
}

Level levelOfShare(double damaged)
{
    return damaged < kLittle ? kFair : damaged < kHalf ? kPoor : kHopeless;
}

/// The objection that weighs most; true if there is one.
bool gradeDamage(const Finding &finding, const Damage &damage, Grade *grade)
{
    const qint64 stored = qMax(qint64(1), storedBytes(finding.content));
    const qint64 taken = qMin(stored, finding.takenBytes + damage.inUse + damage.overwritten);
    const double share = double(qMin(stored, taken + damage.unreadable)) / double(stored);
    if (taken > 0) {
        const QString label =
            share < kHalf ? QStringLiteral("部分被覆盖") : QStringLiteral("已被覆盖");
        const QString by =
            damage.inUse > 0 ? QStringLiteral("现有文件") : QStringLiteral("较新的文件");
        set(grade, levelOfShare(share), label,
            QStringLiteral("%1 数据所在的块已被%2使用").arg(sizeText(taken), by));
        return true;
    }
    if (damage.unreadable > 0) {
        set(grade, levelOfShare(share), QStringLiteral("含坏道"),
            QStringLiteral("%1 数据位于无法读取的扇区").arg(sizeText(damage.unreadable)));
        return true;
    }
    if (finding.contentCheck == Finding::Check::Failed) {
        set(grade, kPoor, QStringLiteral("校验未通过"),
            QStringLiteral("内容与文件系统的校验和或文件自身的结构不符"));
        return true;
    }
    if (finding.contentCheck == Finding::Check::Unusable) {
        set(grade, kPoor, QStringLiteral("无法直接使用"),
            QStringLiteral("数据未被覆盖，但已由系统加密（EFS）或以不支持的方式压缩"));
        return true;
    }
    return false;
}

void gradeCarved(const Finding &finding, Grade *grade)
{
    switch (finding.evidence) {
    case Evidence::Container:
        set(grade, kExcellent, QString::fromUtf8(kContainerLabel),
            QStringLiteral("已识别到完整容器边界，目录中的每个条目都有对应数据"));
        break;
    case Evidence::End:
        if (finding.contentCheck == Finding::Check::Passed) {
            set(grade, kExcellent, QStringLiteral("边界已验证"),
                QStringLiteral("已检测到文件结尾，全部内容已成功解码或通过校验"));
            break;
        }
        set(grade, kGood, QString(), QStringLiteral("已检测到可靠的文件结尾，数据按连续存放处理"));
        break;
    case Evidence::Structure:
        if (finding.isSizeExact) {
            set(grade, kUnsure, QStringLiteral("待核验"),
                QStringLiteral("已推断出文件结尾，但内容无法校验，其间的数据按连续存放处理"));
            break;
        }
        set(grade, kFair, QString(),
            QStringLiteral("内部结构在中途断开，文件可能不完整或存在碎片"));
        break;
    case Evidence::Header:
        set(grade, kPoor, QString(), QStringLiteral("仅识别到文件头特征，未能确认结尾或内部结构"));
        break;
    }
}

void gradeHybrid(const Finding &finding, Grade *grade)
{
    const QString known = finding.name.isEmpty() ? QStringLiteral("数据块位置来自文件系统")
                                                 : QStringLiteral("名称与位置来自文件系统");
    if (!hasVerifiedEnd(finding) || !finding.isMapComplete)
        set(grade, kFair, QStringLiteral("待核验"),
            QStringLiteral("%1，文件结尾由内容推断").arg(known));
    else if (finding.evidence == Evidence::Container)
        set(grade, kExcellent, QString::fromUtf8(kContainerLabel),
            QStringLiteral("%1，文件结尾由内容确认").arg(known));
    else if (finding.contentCheck == Finding::Check::Passed)
        set(grade, kExcellent, QStringLiteral("边界已验证"),
            QStringLiteral("%1，全部内容已成功解码或通过校验").arg(known));
    else
        set(grade, kGood, QStringLiteral("边界已验证"),
            QStringLiteral("%1，文件结尾由内容确认").arg(known));
}

/// Of a file whose blocks are not all told by the file system.
void gradeUnsureMap(const Finding &finding, const QString &origin, Grade *grade)
{
    const qint64 size = finding.content.size;
    const qint64 mapped = mappedBytes(finding.content);
    if (mapped >= size) {
        set(grade, kFair, QStringLiteral("待核验"),
            QStringLiteral("%1中没有全部数据块的位置，其余按当时的空闲空间推断").arg(origin));
        return;
    }
    set(grade, levelOfShare(1.0 - double(mapped) / double(size)), QStringLiteral("数据不全"),
        QStringLiteral("%1中只剩下一部分数据块的位置").arg(origin));
}

void gradeMapped(const Finding &finding, Grade *grade)
{
    const QString origin = finding.source == FindingSource::Journal
                               ? QStringLiteral("文件系统日志")
                               : QStringLiteral("文件系统元数据");
    if (!finding.isMapComplete) {
        gradeUnsureMap(finding, origin, grade);
    } else if (!finding.isSizeExact) {
        set(grade, kUnsure, QStringLiteral("大小为估计"),
            QStringLiteral("数据块位置来自%1，文件的准确大小已丢失").arg(origin));
    } else if (finding.isMapGuessed && finding.contentCheck != Finding::Check::Passed) {
        set(grade, kGood, QStringLiteral("待核验"),
            QStringLiteral("起始位置来自%1，其后的数据块按连续存放推断").arg(origin));
    } else if (finding.contentCheck == Finding::Check::Passed) {
        set(grade, kVerified, QString::fromUtf8(kWholeLabel),
            QStringLiteral("数据块位置来自%1，内容已通过校验").arg(origin));
    } else {
        set(grade, kExcellent, QString::fromUtf8(kWholeLabel),
            QStringLiteral("大小与全部数据块位置来自%1，数据块未被再次使用").arg(origin));
    }
    if (finding.name.isEmpty() && grade->label == QString::fromUtf8(kWholeLabel))
        grade->label = QStringLiteral("名称丢失");
}

} // namespace

Grade gradeOf(const Finding &finding, const Damage &damage)
{
    Grade grade;
    if (finding.source == FindingSource::Carving)
        gradeCarved(finding, &grade);
    else if (finding.source == FindingSource::Hybrid)
        gradeHybrid(finding, &grade);
    else
        gradeMapped(finding, &grade);
    const bool isDamaged = gradeDamage(finding, damage, &grade);
    if (finding.source == FindingSource::Carving && finding.content.extents.size() <= 1)
        // A seen end, reached along the file's own lengths, is only found where the data are in
        // one piece. Of the others nothing is known.
        grade.contiguity = hasVerifiedEnd(finding) ? 1.0 : 0.5;
    else
        grade.contiguity = contiguityOf(finding.content);
    grade.isBoundaryVerified = isFromContent(finding) && hasVerifiedEnd(finding) && !isDamaged;
    return grade;
}

bool isWhole(const Finding &finding, const Damage &damage)
{
    const bool isComplete = finding.source == FindingSource::Carving
                                ? hasVerifiedEnd(finding)
                                : finding.isSizeExact && finding.isMapComplete;
    return isComplete && damage.isNone() && finding.takenBytes == 0 &&
           finding.contentCheck != Finding::Check::Failed &&
           finding.contentCheck != Finding::Check::Unusable;
}

QString sourceWord(FindingSource source)
{
    switch (source) {
    case FindingSource::Journal:
        return QStringLiteral("journal");
    case FindingSource::Hybrid:
        return QStringLiteral("hybrid");
    case FindingSource::Carving:
        return QStringLiteral("carving");
    case FindingSource::Metadata:
        break;
    }
    return QStringLiteral("metadata");
}

} // namespace services::recoveryd
