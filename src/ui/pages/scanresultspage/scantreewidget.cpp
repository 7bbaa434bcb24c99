#include "ui/pages/scanresultspage/scantreewidget.h"

#include "ui/common/itemviews.h"
#include "ui/pages/scanresultspage/scantreemodel.h"

#include <QHeaderView>

namespace scanresults {

namespace {

constexpr int kIndentation = 16;

} // namespace

ScanTreeWidget::ScanTreeWidget(ScanTreeModel *model, QWidget *parent)
    : QTreeView(parent)
    , m_model(model)
{
    setObjectName(QStringLiteral("ScanTree"));
    ui::common::setUpTree(this);
    setIndentation(kIndentation);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setTextElideMode(Qt::ElideRight);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setModel(model);
    header()->setStretchLastSection(false);
    header()->setSectionsClickable(false);
    header()->setResizeContentsPrecision(0);
    header()->setSectionResizeMode(ScanTreeModel::NameColumn, QHeaderView::Stretch);
    header()->setSectionResizeMode(ScanTreeModel::CountColumn, QHeaderView::ResizeToContents);
    connect(this, &QTreeView::clicked, this,
            [this](const QModelIndex &index) { emit directoryChosen(m_model->nodeOf(index)); });
    selectNode(ScanTreeModel::kRootNode);
}

void ScanTreeWidget::keyPressEvent(QKeyEvent *event)
{
    const int before = m_model->nodeOf(currentIndex());
    QTreeView::keyPressEvent(event);
    const int node = m_model->nodeOf(currentIndex());
    if (node >= 0 && node != before)
        emit directoryChosen(node);
}

void ScanTreeWidget::selectNode(int node)
{
    const QModelIndex index = m_model->indexOf(node);
    for (QModelIndex above = index.parent(); above.isValid(); above = above.parent())
        expand(above);
    if (node == ScanTreeModel::kRootNode)
        expand(index);
    setCurrentIndex(index);
}

QStringList ScanTreeWidget::openPaths() const
{
    QStringList paths;
    QModelIndex index = model()->index(0, 0);
    for (; index.isValid(); index = indexBelow(index)) {
        if (isExpanded(index))
            paths.append(index.data(ScanTreeModel::PathRole).toString());
    }
    return paths;
}

void ScanTreeWidget::openPathsAgain(const QStringList &paths)
{
    expand(m_model->indexOf(ScanTreeModel::kRootNode));
    for (const QString &path : paths) {
        const int node = m_model->nodeOfPath(path);
        if (m_model->pathOf(node) == path)
            expand(m_model->indexOf(node));
    }
}

} // namespace scanresults
