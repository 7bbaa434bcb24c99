#include "ui/pages/diskanalyzerpage/directorytab.h"

#include "ui/common/celldelegate.h"
#include "ui/common/elidedlabel.h"
#include "ui/common/itemviews.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/common/widgetstyle.h"
#include "ui/pages/diskanalyzerpage/analyzertext.h"
#include "ui/pages/diskanalyzerpage/bardelegate.h"
#include "ui/pages/diskanalyzerpage/directorymodel.h"
#include "ui/pages/diskanalyzerpage/dirfilemodel.h"
#include "ui/pages/diskanalyzerpage/treemapwidget.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QTableView>
#include <QTreeView>

using ui::common::CellDelegate;
using ui::common::ElidedLabel;
using ui::common::EmptyState;
using ui::common::IconWidget;
using ui::common::ThemeColors;
namespace metrics = ui::common::metrics;

namespace diskanalyzer {

namespace {

constexpr ushort kUpGlyph = 0xF062;
constexpr int kGlyphSize = 16;
constexpr int kTreeIndent = 16;
constexpr int kTreeShare = 3; ///< Of the width, to kSideShare.
constexpr int kSideShare = 2;

int sizeColumnWidth()
{
    return CellDelegate::textColumnWidth(QStringLiteral("1023.9 GB"));
}

} // namespace

DirectoryTab::DirectoryTab(QWidget *parent)
    : QWidget(parent)
    , m_model(new DirectoryModel(this))
    , m_files(new DirFileModel(this))
    , m_views(new QStackedWidget(this))
    , m_empty(new EmptyState(IconWidget::Folder, m_views))
    , m_splitter(new QSplitter(Qt::Horizontal, m_views))
    , m_tree(new QTreeView(m_splitter))
{
    m_splitter->setObjectName(QStringLiteral("DirSplitter"));
    buildTree();
    m_splitter->addWidget(m_tree);
    m_splitter->addWidget(buildSide());
    m_splitter->setChildrenCollapsible(false);
    m_splitter->setHandleWidth(metrics::kCardGap);
    m_splitter->setStretchFactor(0, kTreeShare);
    m_splitter->setStretchFactor(1, kSideShare);
    // Shares, which the splitter stretches to the width that it gets.
    m_splitter->setSizes({kTreeShare * 100, kSideShare * 100});
    m_views->addWidget(m_empty);
    m_views->addWidget(m_splitter);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(metrics::kFieldGap, metrics::kFieldGap, metrics::kFieldGap,
                               metrics::kFieldGap);
    layout->addWidget(m_views);
    wire();
}

void DirectoryTab::buildTree()
{
    m_tree->setObjectName(QStringLiteral("DirTree"));
    m_tree->setAccessibleName(tr("目录空间占用"));
    m_tree->setModel(m_model);
    ui::common::setUpTree(m_tree);
    m_tree->setIndentation(kTreeIndent);
    m_tree->setItemDelegateForColumn(DirectoryModel::ShareColumn, new BarDelegate(m_tree));
    QHeaderView *header = m_tree->header();
    header->setStretchLastSection(false);
    header->setSectionResizeMode(QHeaderView::Fixed);
    header->setSectionResizeMode(DirectoryModel::NameColumn, QHeaderView::Stretch);
    header->resizeSection(DirectoryModel::SizeColumn, sizeColumnWidth());
    header->resizeSection(DirectoryModel::ShareColumn, BarDelegate::columnWidth());
}

QWidget *DirectoryTab::buildSide()
{
    auto *side = new QWidget(m_splitter);
    auto *parts = new QSplitter(Qt::Vertical, side);
    parts->setObjectName(QStringLiteral("DirSideSplitter"));
    parts->setChildrenCollapsible(false);
    parts->setHandleWidth(metrics::kFieldGap);
    m_treemap = new TreemapWidget(parts);
    m_treemap->setObjectName(QStringLiteral("DirTreemap"));
    parts->addWidget(m_treemap);
    parts->addWidget(buildFileList(parts));
    parts->setStretchFactor(0, 1);
    parts->setStretchFactor(1, 1);
    auto *column = new QVBoxLayout(side);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(metrics::kFieldGap);
    column->addWidget(buildSideHeader(side));
    column->addWidget(parts, 1);
    return side;
}

QWidget *DirectoryTab::buildSideHeader(QWidget *parent)
{
    auto *header = new QWidget(parent);
    m_up = new QPushButton(header);
    m_up->setObjectName(QStringLiteral("DirUpButton"));
    ui::common::setButtonRole(m_up, QStringLiteral("icon"));
    m_up->setIcon(QIcon(IconWidget::makeFontAwesomePixmap(
        QChar(kUpGlyph), ThemeColors::current().textPrimary, kGlyphSize)));
    m_up->setToolTip(tr("返回上一级目录"));
    m_up->setAccessibleName(tr("返回上一级目录"));
    m_path = new ElidedLabel(QString(), Qt::ElideMiddle, header);
    m_path->setObjectName(QStringLiteral("DirPathLabel"));
    m_size = new QLabel(header);
    m_size->setObjectName(QStringLiteral("DirSizeLabel"));
    m_size->setProperty("textRole", QStringLiteral("subtle"));
    auto *row = new QHBoxLayout(header);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(metrics::kFieldGap);
    row->addWidget(m_up);
    row->addWidget(m_path, 1);
    row->addWidget(m_size);
    return header;
}

QWidget *DirectoryTab::buildFileList(QWidget *parent)
{
    m_fileViews = new QStackedWidget(parent);
    m_fileHint = new EmptyState(IconWidget::File, m_fileViews);
    m_fileTable = new QTableView(m_fileViews);
    m_fileTable->setObjectName(QStringLiteral("DirFileTable"));
    m_fileTable->setAccessibleName(tr("目录中的文件"));
    m_fileTable->setModel(m_files);
    ui::common::setUpTable(m_fileTable);
    QHeaderView *header = m_fileTable->horizontalHeader();
    header->setSectionResizeMode(DirFileModel::NameColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(DirFileModel::SizeColumn, QHeaderView::Fixed);
    header->resizeSection(DirFileModel::SizeColumn, sizeColumnWidth());
    m_fileViews->addWidget(m_fileHint);
    m_fileViews->addWidget(m_fileTable);
    return m_fileViews;
}

void DirectoryTab::wire()
{
    connect(m_tree->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            [this](const QModelIndex &current) {
                showDirectory(current);
                m_justChosen = current;
                if (current.isValid())
                    emit directoryChosen(current);
            });
    // A click on the directory that is the current one already reads its files anew.
    connect(m_tree, &QTreeView::clicked, this, [this](const QModelIndex &index) {
        const QModelIndex row = index.sibling(index.row(), 0);
        const bool reported =
            m_justChosen.isValid() && m_justChosen.sibling(m_justChosen.row(), 0) == row;
        m_justChosen = QModelIndex();
        if (!reported)
            emit directoryChosen(row);
    });
    connect(m_treemap, &TreemapWidget::directoryActivated, this, [this](int childRow) {
        const QModelIndex at = m_tree->currentIndex();
        choose(m_model->index(childRow, 0, at.sibling(at.row(), 0)));
    });
    const auto goUp = [this] {
        choose(m_tree->currentIndex().parent());
    };
    connect(m_treemap, &TreemapWidget::upRequested, this, goUp);
    connect(m_up, &QPushButton::clicked, this, goUp);
}

void DirectoryTab::choose(const QModelIndex &index)
{
    if (!index.isValid())
        return;
    m_tree->expand(index.parent());
    m_tree->setCurrentIndex(index);
    m_tree->scrollTo(index);
}

void DirectoryTab::showDirectory(const QModelIndex &index)
{
    const DirectoryNode *node = m_model->nodeOf(index);
    m_up->setEnabled(node && node->parent);
    m_path->setText(node ? pathOf(node) : QString());
    m_size->setText(node ? formatSize(node->totalSize) : QString());
    m_treemap->setItems(node ? treemapItems(*node) : QVector<TreemapItem>());
}

void DirectoryTab::clear(EmptyState::Tone tone, const QString &title, const QString &hint)
{
    m_model->setTree(nullptr);
    m_files->setFiles(QVariantList());
    showDirectory(QModelIndex());
    m_empty->setTone(tone);
    m_empty->setTexts(title, hint);
    m_views->setCurrentWidget(m_empty);
}

void DirectoryTab::populateDirectoryTree(const DirectoryTree &tree)
{
    m_model->setTree(tree);
    showFileHint(EmptyState::Tone::Plain, tr("点击左侧目录查看文件列表"));
    const QModelIndex root = m_model->index(0, 0);
    m_tree->expand(root);
    // The picture shows the whole; no files are read before somebody asks.
    const QSignalBlocker blocker(this);
    m_tree->setCurrentIndex(root);
    m_justChosen = QModelIndex();
    showDirectory(root);
    m_views->setCurrentWidget(m_splitter);
}

bool DirectoryTab::hasTree() const
{
    return m_model->tree() != nullptr;
}

QString DirectoryTab::pathOfIndex(const QModelIndex &index) const
{
    const DirectoryNode *node = m_model->nodeOf(index);
    return node ? pathOf(node) : QString();
}

void DirectoryTab::showFileHint(EmptyState::Tone tone, const QString &title)
{
    m_fileHint->setTone(tone);
    m_fileHint->setTexts(title, QString());
    m_fileViews->setCurrentWidget(m_fileHint);
}

void DirectoryTab::showFilesBusy()
{
    m_files->setFiles(QVariantList());
    showFileHint(EmptyState::Tone::Busy, tr("正在读取文件列表..."));
}

void DirectoryTab::showFiles(const QVariantList &files)
{
    m_files->setFiles(files);
    m_fileTable->scrollToTop();
    if (files.isEmpty())
        showFileHint(EmptyState::Tone::Plain, tr("此目录中没有文件"));
    else
        m_fileViews->setCurrentWidget(m_fileTable);
}

void DirectoryTab::removeFiles(const QVector<ScannedFile> &files)
{
    const QString shown = pathOfIndex(m_tree->currentIndex());
    QVector<RemovedFile> removed;
    removed.reserve(files.size());
    QSet<QString> shownNames;
    for (const ScannedFile &file : files) {
        removed.append({file.path, file.size});
        const int slash = file.path.lastIndexOf(QLatin1Char('/'));
        if (file.path.leftRef(qMax(1, slash)) == shown)
            shownNames.insert(file.path.mid(slash + 1));
    }
    m_model->removeFiles(removed);
    m_files->removeFiles(shownNames);
    showDirectory(m_tree->currentIndex());
}

} // namespace diskanalyzer
