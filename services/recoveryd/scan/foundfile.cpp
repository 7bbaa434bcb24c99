#include "recoveryd/scan/foundfile.h"

#include "common/text.h"
#include "core/jsonnumber.h"

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kSector = 512;

struct Chance
{
    const char *word;
    const char *key;
    int score;
};

Chance chanceOf(Evidence evidence)
{
    switch (evidence) {
    case Evidence::Container:
        return {"极高", "excellent", 95};
    case Evidence::End:
        return {"较好", "good", 80};
    case Evidence::Structure:
        return {"一般", "fair", 50};
    case Evidence::Header:
        break;
    }
    return {"较差", "poor", 20};
}

QString reasonOf(Evidence evidence)
{
    switch (evidence) {
    case Evidence::Container:
        return QStringLiteral("已识别到完整容器边界，目录中的每个条目都有对应数据");
    case Evidence::End:
        return QStringLiteral("已检测到可靠的文件结尾，数据按连续存放处理");
    case Evidence::Structure:
        return QStringLiteral("内部结构在中途断开，文件可能不完整或存在碎片");
    case Evidence::Header:
        break;
    }
    return QStringLiteral("仅识别到文件头特征，未能确认结尾或内部结构");
}

} // namespace

QJsonObject FoundFile::toJson() const
{
    const qint64 first = ranges.isEmpty() ? 0 : ranges.first().start / kSector;
    return {{QStringLiteral("fileId"), fileId},
            {QStringLiteral("name"), name},
            {QStringLiteral("size"), sizeText(size)},
            {QStringLiteral("sizeBytes"), size},
            {QStringLiteral("type"), type},
            {QStringLiteral("path"), path},
            {QStringLiteral("probability"), probability},
            {QStringLiteral("probabilityKey"), probabilityKey},
            {QStringLiteral("probScore"), probScore},
            {QStringLiteral("deletionTime"), deletionTime},
            {QStringLiteral("blockStart"), first},
            {QStringLiteral("contiguity"), contiguity},
            {QStringLiteral("source"), source},
            {QStringLiteral("boundaryVerified"), boundaryVerified},
            {QStringLiteral("integrityLabel"), integrityLabel},
            {QStringLiteral("integrityReason"), integrityReason}};
}

QJsonObject FoundFile::toStored() const
{
    QJsonArray stored;
    for (const Range &range : ranges) {
        stored.append(range.start);
        stored.append(range.length);
    }
    QJsonObject object = toJson();
    object.insert(QStringLiteral("ranges"), stored);
    return object;
}

bool FoundFile::fromStored(const QJsonObject &object, FoundFile *file)
{
    const auto text = [&object](const char *key) {
        return object.value(QLatin1String(key)).toString();
    };
    file->fileId = text("fileId");
    file->name = text("name");
    file->type = text("type");
    file->path = text("path");
    file->size = core::toInt64(object.value(QLatin1String("sizeBytes")));
    file->probability = text("probability");
    file->probabilityKey = text("probabilityKey");
    file->probScore = object.value(QLatin1String("probScore")).toInt();
    file->deletionTime = text("deletionTime");
    file->contiguity = object.value(QLatin1String("contiguity")).toDouble();
    file->source = text("source");
    file->boundaryVerified = object.value(QLatin1String("boundaryVerified")).toBool();
    file->integrityLabel = text("integrityLabel");
    file->integrityReason = text("integrityReason");
    file->ranges.clear();
    const QJsonArray stored = object.value(QLatin1String("ranges")).toArray();
    for (int i = 0; i + 1 < stored.size(); i += 2) {
        const Range range{core::toInt64(stored.at(i)), core::toInt64(stored.at(i + 1))};
        if (range.start < 0 || range.length <= 0 ||
            range.length > file->size - totalLength(file->ranges))
            return false;
        file->ranges.append(range);
    }
    return !file->fileId.isEmpty() && file->size > 0 && totalLength(file->ranges) == file->size;
}

FoundFile describe(const Finding &finding, int number)
{
    const bool isVerified =
        finding.evidence == Evidence::End || finding.evidence == Evidence::Container;
    const Chance chance = chanceOf(finding.evidence);
    const Ranges ranges = finding.content.storedRanges();
    const qint64 start = ranges.isEmpty() ? 0 : ranges.first().start;
    FoundFile file;
    file.fileId = QStringLiteral("c%1").arg(number, 6, 10, QLatin1Char('0'));
    // The name is lost with the directory entry; the sector makes a new one that never repeats.
    file.name = QStringLiteral("f%1.%2")
                    .arg(start / kSector, 9, 10, QLatin1Char('0'))
                    .arg(finding.extension);
    file.type = finding.type;
    file.path = QStringLiteral("/特征扫描/%1/%2").arg(finding.type, file.name);
    file.size = finding.content.size;
    file.probability = QString::fromUtf8(chance.word);
    file.probabilityKey = QLatin1String(chance.key);
    file.probScore = chance.score;
    // A seen end, reached along the file's own lengths, is only found where the data are in one
    // piece. Of the others nothing is known.
    file.contiguity = isVerified ? 1.0 : 0.5;
    file.source = QStringLiteral("carving");
    file.boundaryVerified = isVerified;
    if (finding.evidence == Evidence::Container)
        file.integrityLabel = QStringLiteral("容器已验证");
    file.integrityReason = reasonOf(finding.evidence);
    file.ranges = ranges;
    return file;
}

} // namespace recoveryd
} // namespace services
