#pragma once

#include "ui/pages/diskanalyzerpage/directorytree.h"

#include <QAbstractItemModel>
#include <QVector>

namespace diskanalyzer {

/// The scanned directories with name, size and share of their parent. Rows are worked out when they
/// are asked for, and a view asks only for what is open, so directories that nobody opens cost
/// nothing. The scanned directory is the one top row.
class DirectoryModel : public QAbstractItemModel
{
    Q_OBJECT

public:
    enum Column { NameColumn, SizeColumn, ShareColumn, ColumnCount };
    enum Role { ShareRole = Qt::UserRole + 1 }; ///< double, percent of the parent.

    explicit DirectoryModel(QObject *parent = nullptr);
    ~DirectoryModel() override;

    /// Null for no tree. The one before is freed on a pool thread.
    void setTree(const DirectoryTree &tree);
    const DirectoryTree &tree() const { return m_tree; }
    /// Takes removed files off the sizes shown.
    void removeFiles(const QVector<RemovedFile> &files);

    DirectoryNode *nodeOf(const QModelIndex &index) const;
    QModelIndex indexOf(DirectoryNode *node) const;

    QModelIndex index(int row, int column,
                      const QModelIndex &parent = QModelIndex()) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    bool hasChildren(const QModelIndex &parent = QModelIndex()) const override;
    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    void emitLevelChanged(DirectoryNode *level);

    DirectoryTree m_tree;
};

} // namespace diskanalyzer
