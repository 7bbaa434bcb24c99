#pragma once

#include "ui/common/emptystate.h"
#include "ui/pages/diskanalyzerpage/largefilemodel.h"

#include <QWidget>

class QCheckBox;
class QLabel;
class QPushButton;
class QStackedWidget;
class QTableView;

namespace diskanalyzer {

/// "大文件排行". Object names: LargeFileTable, LargeFileSelectAll, LargeFileFooter,
/// LargeFileDeleteButton. Space ticks the selected rows, Delete asks for the ticked ones' removal.
class LargeFilesTab : public QWidget
{
    Q_OBJECT

public:
    explicit LargeFilesTab(QWidget *parent = nullptr);

    /// Shows this in place of rows.
    void clear(ui::common::EmptyState::Tone tone, const QString &title, const QString &hint);
    void setFiles(const QVector<LargeFile> &files);
    void removePaths(const QSet<QString> &paths);
    int count() const;
    /// While files are being deleted no more can be.
    void setDeleting(bool deleting);

signals:
    void deleteRequested(const QVector<diskanalyzer::LargeFile> &files);
    void openDirRequested(const QString &filePath);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QWidget *buildFooter();
    void buildTable();
    void wire();
    void showChecked();
    void toggleSelectedRows();
    void requestDeleteChecked();
    void onAction(const QModelIndex &index, int action);

    LargeFileModel *m_model;
    QStackedWidget *m_views; ///< The empty state, or the table.
    ui::common::EmptyState *m_empty;
    QTableView *m_table;
    QWidget *m_footerBar = nullptr;
    QCheckBox *m_selectAll = nullptr;
    QLabel *m_footer = nullptr;
    QPushButton *m_delete = nullptr;
    bool m_deleting = false;
};

} // namespace diskanalyzer
