#pragma once

#include "ui/common/emptystate.h"
#include "ui/pages/diskanalyzerpage/directorytree.h"
#include "ui/pages/diskanalyzerpage/filedeletion.h"

#include <QPersistentModelIndex>
#include <QVariantList>
#include <QWidget>

class QLabel;
class QPushButton;
class QSplitter;
class QStackedWidget;
class QTableView;
class QTreeView;
class TreemapWidget;

namespace ui {
namespace common {
class ElidedLabel;
}
} // namespace ui

namespace diskanalyzer {

class DirFileModel;
class DirectoryModel;

/// "目录空间占用": the tree, and of the directory chosen in it a picture and its files. Object
/// names: DirTree, DirTreemap, DirUpButton, DirPathLabel, DirSizeLabel, DirFileTable.
class DirectoryTab : public QWidget
{
    Q_OBJECT

public:
    explicit DirectoryTab(QWidget *parent = nullptr);

    /// Shows this in place of a tree.
    void clear(ui::common::EmptyState::Tone tone, const QString &title, const QString &hint);
    void populateDirectoryTree(const DirectoryTree &tree);
    bool hasTree() const;
    QString pathOfIndex(const QModelIndex &index) const;
    /// The files of the chosen directory are on their way.
    void showFilesBusy();
    void showFiles(const QVariantList &files);
    /// Takes removed files out of all that is shown.
    void removeFiles(const QVector<ScannedFile> &files);

signals:
    /// By click, key or through the picture.
    void directoryChosen(const QModelIndex &index);

private:
    QWidget *buildSide();
    QWidget *buildSideHeader(QWidget *parent);
    QWidget *buildFileList(QWidget *parent);
    void buildTree();
    void wire();
    void showDirectory(const QModelIndex &index);
    void choose(const QModelIndex &index);
    void showFileHint(ui::common::EmptyState::Tone tone, const QString &title);

    DirectoryModel *m_model;
    DirFileModel *m_files;
    QStackedWidget *m_views; ///< The empty state, or the tree with its side.
    ui::common::EmptyState *m_empty;
    QSplitter *m_splitter;
    QTreeView *m_tree;
    QPushButton *m_up = nullptr;
    ui::common::ElidedLabel *m_path = nullptr;
    QLabel *m_size = nullptr;
    TreemapWidget *m_treemap = nullptr;
    QStackedWidget *m_fileViews = nullptr; ///< The empty state, or the table.
    ui::common::EmptyState *m_fileHint = nullptr;
    QTableView *m_fileTable = nullptr;
    /// Reported when it became the current one, so its click need not be.
    QPersistentModelIndex m_justChosen;
};

} // namespace diskanalyzer
