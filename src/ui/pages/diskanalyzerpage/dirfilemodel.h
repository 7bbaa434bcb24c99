#pragma once

#include <QAbstractTableModel>
#include <QSet>
#include <QVariantList>

#include <functional>

namespace diskanalyzer {

/// The files directly in a directory: maps of "name", "size" (bytes) and "ext" (lower case, without
/// the dot), largest first. Blocks; `stopped` is asked before each file.
QVariantList listFilesOf(const QString &directory, const std::function<bool()> &stopped);

/// Shows what listFilesOf() found.
class DirFileModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { NameColumn, SizeColumn, ColumnCount };

    using QAbstractTableModel::QAbstractTableModel;

    void setFiles(const QVariantList &files);
    /// In one pass. Names that are not listed are ignored.
    void removeFiles(const QSet<QString> &names);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    QVariantList m_files;
};

} // namespace diskanalyzer
