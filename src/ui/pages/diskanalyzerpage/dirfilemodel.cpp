#include "ui/pages/diskanalyzerpage/dirfilemodel.h"

#include "ui/pages/diskanalyzerpage/analyzertext.h"
#include "ui/pages/diskanalyzerpage/filekinds.h"

#include <QDirIterator>

#include <algorithm>

namespace diskanalyzer {

namespace {

/// Above this, removing rows one by one costs more than showing the list anew.
constexpr int kMaxSingleRemovals = 32;

} // namespace

QVariantList listFilesOf(const QString &directory, const std::function<bool()> &stopped)
{
    struct File
    {
        QString name;
        qint64 size;
        QString extension;
    };
    QVector<File> files;
    QDirIterator entries(directory, QDir::Files | QDir::Hidden | QDir::NoSymLinks);
    while (entries.hasNext() && !stopped()) {
        entries.next();
        const QFileInfo info = entries.fileInfo();
        if (info.isFile())
            files.append({info.fileName(), info.size(), info.suffix().toLower()});
    }
    std::sort(files.begin(), files.end(), [](const File &a, const File &b) {
        return a.size != b.size ? a.size > b.size : a.name < b.name;
    });
    QVariantList list;
    list.reserve(files.size());
    for (const File &file : files)
        list.append(QVariantMap{{QStringLiteral("name"), file.name},
                                {QStringLiteral("size"), file.size},
                                {QStringLiteral("ext"), file.extension}});
    return list;
}

void DirFileModel::setFiles(const QVariantList &files)
{
    beginResetModel();
    m_files = files;
    endResetModel();
}

void DirFileModel::removeFiles(const QSet<QString> &names)
{
    const auto isGone = [&names](const QVariant &file) {
        return names.contains(file.toMap().value(QStringLiteral("name")).toString());
    };
    if (names.size() > kMaxSingleRemovals) {
        beginResetModel();
        m_files.erase(std::remove_if(m_files.begin(), m_files.end(), isGone), m_files.end());
        endResetModel();
        return;
    }
    for (int row = m_files.size() - 1; row >= 0 && !names.isEmpty(); --row) {
        if (!isGone(m_files.at(row)))
            continue;
        beginRemoveRows(QModelIndex(), row, row);
        m_files.removeAt(row);
        endRemoveRows();
    }
}

int DirFileModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_files.size();
}

int DirFileModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant DirFileModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return QVariant();
    const bool isSize = index.column() == SizeColumn;
    if (role == Qt::TextAlignmentRole)
        return int((isSize ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter);
    if (role != Qt::DisplayRole && role != Qt::DecorationRole)
        return QVariant();
    const QVariantMap file = m_files.at(index.row()).toMap();
    if (role == Qt::DecorationRole)
        return isSize ? QVariant() : iconForExtension(file.value(QStringLiteral("ext")).toString());
    if (isSize)
        return formatSize(file.value(QStringLiteral("size")).toLongLong());
    return file.value(QStringLiteral("name"));
}

QVariant DirFileModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= ColumnCount)
        return QVariant();
    if (role == Qt::TextAlignmentRole)
        return int((section == SizeColumn ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter);
    if (role == Qt::DisplayRole)
        return section == SizeColumn ? tr("大小") : tr("文件名");
    return QVariant();
}

} // namespace diskanalyzer
