#pragma once

#include "ui/pages/diskanalyzerpage/duplicategroups.h"

#include <QAbstractListModel>

namespace diskanalyzer {

/// The groups as one list of rows: of each its head, then its files.
class DuplicateModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Role {
        GroupRole = Qt::UserRole + 1, ///< int, number of the group.
        FileRole,                     ///< int, number of the file in its group; -1 for the head.
    };

    using QAbstractListModel::QAbstractListModel;

    void setResult(const DuplicateResult &result);
    void removePaths(const QSet<QString> &paths);
    const DuplicateResult &result() const { return m_result; }
    const DuplicateGroup &groupAt(const QModelIndex &index) const;
    /// Null for a head.
    const DuplicateFile *fileAt(const QModelIndex &index) const;
    bool isLastOfGroup(const QModelIndex &index) const;
    /// Does nothing for a head.
    void toggleKeep(const QModelIndex &index);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;

signals:
    void keepChanged();

private:
    struct Row
    {
        int group;
        int file;
    };

    void rebuildRows();

    DuplicateResult m_result;
    QVector<Row> m_rows;
};

} // namespace diskanalyzer
