#pragma once

#include "ui/pages/recoverydetaildialog/fileresultmodel.h"

#include <QWidget>

class QLabel;
class QLineEdit;
class QModelIndex;
class QSortFilterProxyModel;
class QStackedWidget;
class QTableView;

namespace ui {
namespace common {
class EmptyState;
}
} // namespace ui

namespace recoveryprogress {

/// The files of the recovery, with a search by name above them.
class FileList : public QWidget
{
    Q_OBJECT

public:
    explicit FileList(QWidget *parent = nullptr);

    recoveryresult::FileResultModel *model() const { return m_model; }
    /// Starts over with these files and no search text.
    void setFiles(const QVector<recoveryresult::FileResult> &files);

signals:
    /// The user asked for the story of the file in this row of the model.
    void detailRequested(int row);

private:
    QWidget *buildSearchRow();
    QTableView *buildTable();
    void showCount();

    recoveryresult::FileResultModel *m_model;
    QSortFilterProxyModel *m_shown;
    QLineEdit *m_search = nullptr;
    QLabel *m_count = nullptr;
    QStackedWidget *m_views;
    ui::common::EmptyState *m_empty;
};

} // namespace recoveryprogress
