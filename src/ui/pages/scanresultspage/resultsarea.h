#pragma once

#include "ui/common/emptystate.h"
#include "ui/pages/scanresultspage/scanresultsmodel.h"

#include <QStringList>
#include <QWidget>

class QHBoxLayout;
class QLabel;
class QLineEdit;
class QMenu;
class QPushButton;
class QSplitter;

namespace scanresults {

class QuickFilters;
class ScanResultsTable;
class ScanTreeModel;
class ScanTreeWidget;

/// The found files as a person works with them: directory tree, filters, table, and how many files
/// are listed. The models belong to the page.
class ResultsArea : public QWidget
{
    Q_OBJECT

public:
    ResultsArea(ScanResultsModel *model, ScanTreeModel *directories, QWidget *parent);

    ScanResultsTable *table() const { return m_table; }
    /// What lies around the table, for a panel that covers nothing else.
    QWidget *tableArea() const { return m_tableArea; }

    /// For a new scan: no rows, no search text, all filters open.
    void reset();
    /// Whether all files have come.
    void setComplete(bool isComplete);
    /// What the table says while it holds no files at all.
    void setEmptyText(ui::common::EmptyState::Tone tone, const QString &title, const QString &hint,
                      const QString &action = QString());

signals:
    /// The button of the empty table, unless it is about filters.
    void emptyActionTriggered();
    void detailsRequested(const QModelIndex &index);

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    QHBoxLayout *makeFilterBar();
    QHBoxLayout *makeQuickBar();
    void makeSourceMenu();
    void makeTypeMenu();
    void showTypeCounts();
    void chooseSource(const QString &value, const QString &label);
    void chooseCategory(const QString &label);
    void wire();
    void beginChange(ScanResultsModel::Change change);
    void endChange(ScanResultsModel::Change change);
    void filterByDirectory(int node);
    void clearFilters();
    void applyTableFilters();
    void showCounts();
    void showEmptyState();
    void toggleAll();
    void showTree(bool shown);

    ScanResultsModel *m_model;
    ScanTreeModel *m_directories;
    QSplitter *m_splitter = nullptr;
    ScanTreeWidget *m_tree = nullptr;
    QWidget *m_tableArea = nullptr;
    ScanResultsTable *m_table = nullptr;
    QLineEdit *m_search = nullptr;
    QuickFilters *m_quick = nullptr;
    QPushButton *m_treeToggle = nullptr;
    QPushButton *m_sourceButton = nullptr;
    QMenu *m_typeMenu = nullptr;
    QPushButton *m_clearFilters = nullptr;
    QLabel *m_count = nullptr;

    QString m_source = QStringLiteral("all");
    QString m_category = QStringLiteral("all");
    int m_directory = 0; ///< Node of the directory tree; 0 is the root.
    ui::common::EmptyState::Tone m_emptyTone = ui::common::EmptyState::Tone::Plain;
    QString m_emptyTitle;
    QString m_emptyHint;
    QString m_emptyAction;
    int m_treeWidth = 0;        ///< While the tree shows, or when it did last.
    bool m_treeChosen = false;  ///< The user has said whether the tree shows.
    QStringList m_openPaths;    ///< Of the tree, across a change of all directories.
    QString m_directoryPath;    ///< Likewise.
    bool m_holdFilters = false; ///< Several inputs change at once; one filter pass follows.
};

} // namespace scanresults
