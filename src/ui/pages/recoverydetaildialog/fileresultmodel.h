#pragma once

#include "ui/pages/recoverydetaildialog/fileresult.h"

#include <QAbstractTableModel>
#include <QHash>
#include <QVector>

namespace recoveryresult {

/// Files of one recovery task in a fixed order, for tables with a CellDelegate.
class FileResultModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { NameColumn, StatusColumn, ConclusionColumn, ActionColumn, ColumnCount };

    /// `columns` from the left, at most ColumnCount; what the table does not need is left out.
    FileResultModel(int columns, QObject *parent);

    void setFiles(const QVector<FileResult> &files, bool isRunning);
    /// Whether the task goes on; changes the words of files without a final status.
    void setRunning(bool isRunning);
    bool isRunning() const { return m_isRunning; }
    /// What is new about one file; a file that is not in the table yet gets a row at the end. An
    /// empty name leaves the one that is there.
    void update(const FileResult &result);
    const QVector<FileResult> &files() const { return m_files; }
    const FileResult &at(int row) const { return m_files.at(row); }

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    QString text(const FileResult &file, int column) const;
    QVariant statusStyle(const FileResult &file, int role) const;

    int m_columns;
    bool m_isRunning = false;
    QVector<FileResult> m_files;
    QHash<QString, int> m_rows; ///< By file id.
};

} // namespace recoveryresult
