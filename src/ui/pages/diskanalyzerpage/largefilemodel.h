#pragma once

#include "core/fileidentity.h"

#include <QAbstractTableModel>
#include <QDateTime>
#include <QSet>
#include <QVariantList>
#include <QVector>

namespace diskanalyzer {

struct LargeFile
{
    QString path;
    QString name;
    qint64 size = 0; ///< Bytes.
    QDateTime modified;
    bool checked = false;
    core::FileIdentity identity; ///< As scanned; not valid if the scan reported none.
};

/// From the maps that the worker sends. Any thread.
QVector<LargeFile> largeFilesFromList(const QVariantList &list);

/// The largest files, sorted by any column: sizes and times by their values, not by their texts.
class LargeFileModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { NameColumn, PathColumn, SizeColumn, TimeColumn, ActionColumn, ColumnCount };
    enum Action { OpenAction, DeleteAction };

    explicit LargeFileModel(QObject *parent = nullptr);

    void setFiles(const QVector<LargeFile> &files);
    void removePaths(const QSet<QString> &paths);
    const QVector<LargeFile> &files() const { return m_files; }
    QVector<LargeFile> checkedFiles() const;
    int checkedCount() const { return m_checkedCount; }
    qint64 checkedBytes() const { return m_checkedBytes; }
    void setAllChecked(bool checked);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    void sort(int column, Qt::SortOrder order) override;

signals:
    void checkedChanged();

private:
    QVariant text(const LargeFile &file, int column) const;
    void recount();

    QVector<LargeFile> m_files;
    int m_checkedCount = 0;
    qint64 m_checkedBytes = 0;
};

} // namespace diskanalyzer
