#include "ui/pages/scanresultspage/foundrows.h"

#include "ui/common/utils/filetypecategoryutils.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>

using ui::common::utils::FileTypeCategoryUtils;
using ui::common::utils::ScanFile;
namespace utils = ui::common::utils;

namespace scanresults {

bool FoundRow::isWhole() const
{
    return label == QStringLiteral("目录完整") || label == QStringLiteral("容器已验证") ||
           label == QStringLiteral("边界已验证");
}

void RowSet::add(const RowChunkPointer &chunk, const QVector<int> &nodesOfDirectories)
{
    chunks.push_back(chunk);
    for (const FoundRow &row : chunk->rows) {
        rows.push_back(&row);
        nodes.push_back(nodesOfDirectories.at(row.directory));
    }
}

const QString &RowReader::shared(const QString &text)
{
    return *m_texts.insert(text);
}

FoundRow RowReader::rowOf(const ScanFile &file)
{
    FoundRow row;
    row.fileId = file.fileId;
    row.name = file.name;
    const QString folder = utils::directoryOf(file.path, file.name);
    row.endsWithName = folder.size() < file.path.size();
    row.folder = shared(folder);
    row.size = shared(utils::sizeText(file));
    row.type = shared(file.type);
    row.category = shared(FileTypeCategoryUtils::categoryOfType(file.type));
    row.probability = shared(file.probability);
    row.deletionTime = shared(file.deletionTime);
    row.source = shared(file.source);
    row.sourceWord = shared(utils::sourceWord(file.source));
    row.label = shared(utils::integrityLabel(file));
    row.reason = shared(utils::integrityReason(file, row.label));
    row.blockStart = utils::blockStartText(file);
    row.sizeBytes = file.sizeBytes;
    row.sizeKey = SizeTableWidgetItem(row.size);
    row.timeKey = DeletionTimeTableWidgetItem(file.deletionTime);
    row.contiguity = file.contiguity;
    row.chanceKey = RecoverabilityTableWidgetItem(file, row.label);
    return row;
}

RowChunkPointer RowReader::read(QJsonArray *files)
{
    auto chunk = std::make_shared<RowChunk>();
    chunk->rows.reserve(static_cast<size_t>(files->size()));
    while (!files->isEmpty()) {
        const QJsonObject object = files->takeAt(files->size() - 1).toObject();
        chunk->rows.push_back(rowOf(utils::scanFileFromJson(object)));
    }
    *files = QJsonArray();
    std::reverse(chunk->rows.begin(), chunk->rows.end());
    QHash<QString, int> places;
    for (FoundRow &row : chunk->rows) {
        const auto known = places.constFind(row.folder);
        row.directory = known == places.constEnd() ? chunk->directories.size() : *known;
        if (known == places.constEnd()) {
            places.insert(row.folder, row.directory);
            chunk->directories.append(row.folder);
            chunk->files.append(0);
        }
        ++chunk->files[row.directory];
    }
    return chunk;
}

} // namespace scanresults
