#include "recoveryd/scan/foundfile.h"

#include "common/text.h"
#include "recoveryd/scan/filetypes.h"

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kSector = 512;

/// Names are bytes on most file systems; what is no UTF-8 is shown with replacement signs.
QString decoded(const QByteArray &bytes)
{
    QString text = QString::fromUtf8(bytes);
    // JSON clients end a text there.
    text.replace(QChar(0), QLatin1Char('_'));
    return text;
}

qint64 firstByteOf(const FileContent &content)
{
    if (!content.extents.isEmpty())
        return content.extents.first().physical;
    for (const PackedExtent &extent : content.packed)
        if (!extent.stored.isEmpty())
            return extent.stored.first().start;
    return 0;
}

/// The name is lost; the sector makes a new one that never repeats.
QString madeUpName(const Finding &finding, qint64 firstByte, int number)
{
    const bool hasPlace = firstByte > 0 || finding.source == FindingSource::Carving;
    const QString stem =
        hasPlace ? QStringLiteral("f%1").arg(firstByte / kSector, 9, 10, QLatin1Char('0'))
                 : QStringLiteral("n%1").arg(number, 9, 10, QLatin1Char('0'));
    return finding.extension.isEmpty() ? stem : stem + QLatin1Char('.') + finding.extension;
}

QString typeOf(const Finding &finding)
{
    if (!finding.type.isEmpty())
        return finding.type;
    const QString suffix = finding.name.isEmpty() ? finding.extension : suffixOf(finding.name);
    return suffix.isEmpty() ? QStringLiteral("文件") : suffix.toUpper();
}

QString pathOf(const Finding &finding, const QString &type, const QString &name)
{
    const QString folder = decoded(finding.folder);
    if (finding.source == FindingSource::Carving)
        return QStringLiteral("/特征扫描/%1/%2").arg(type, name);
    switch (finding.folderKnowledge) {
    case Finding::Folder::Full:
        return folder.isEmpty() ? QLatin1Char('/') + name
                                : QStringLiteral("/%1/%2").arg(folder, name);
    case Finding::Folder::Partial:
        return QStringLiteral("/…/%1/%2").arg(folder, name);
    case Finding::Folder::Unknown:
        break;
    }
    return QStringLiteral("/丢失路径/%1").arg(name);
}

} // namespace

QString fileIdOf(int number)
{
    return QStringLiteral("f%1").arg(number, 6, 10, QLatin1Char('0'));
}

int numberOf(const QString &fileId)
{
    if (fileId.size() < 2 || !fileId.at(0).isLetter())
        return 0;
    bool isNumber = false;
    const int number = fileId.mid(1).toInt(&isNumber);
    return isNumber && number > 0 ? number : 0;
}

QJsonObject FoundFile::toJson() const
{
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
            {QStringLiteral("blockStart"), firstByte / kSector},
            {QStringLiteral("contiguity"), contiguity},
            {QStringLiteral("source"), source},
            {QStringLiteral("boundaryVerified"), boundaryVerified},
            {QStringLiteral("integrityLabel"), integrityLabel},
            {QStringLiteral("integrityReason"), integrityReason}};
}

FoundFile describe(const Finding &finding, int number, const Damage &damage)
{
    const Grade grade = gradeOf(finding, damage);
    FoundFile file;
    file.fileId = fileIdOf(number);
    file.firstByte = firstByteOf(finding.content);
    file.name = finding.name.isEmpty() ? madeUpName(finding, file.firstByte, number)
                                       : decoded(finding.name);
    file.type = typeOf(finding);
    file.path = pathOf(finding, file.type, file.name);
    file.size = finding.content.size;
    file.probability = grade.probability;
    file.probabilityKey = grade.probabilityKey;
    file.probScore = grade.score;
    if (finding.deletedMs != Finding::kUnknownTime)
        file.deletionTime = timeText(QDateTime::fromMSecsSinceEpoch(finding.deletedMs));
    file.contiguity = grade.contiguity;
    file.source = sourceWord(finding.source);
    file.boundaryVerified = grade.isBoundaryVerified;
    file.integrityLabel = grade.label;
    file.integrityReason = grade.reason;
    file.ranges = finding.content.storedRanges();
    return file;
}

} // namespace recoveryd
} // namespace services
