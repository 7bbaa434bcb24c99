#include "ui/pages/scanresultspage/columnchooser.h"

#include "ui/pages/scanresultspage/scanresultsmodel.h"

#include <QHeaderView>
#include <QMenu>

namespace scanresults {

namespace {

constexpr ScanResultsModel::Column kOrder[] = {
    ScanResultsModel::CheckColumn,     ScanResultsModel::NameColumn,
    ScanResultsModel::ChanceColumn,    ScanResultsModel::SizeColumn,
    ScanResultsModel::IntegrityColumn, ScanResultsModel::DetailColumn,
    ScanResultsModel::TypeColumn,      ScanResultsModel::TimeColumn,
    ScanResultsModel::SourceColumn,    ScanResultsModel::PathColumn};

/// A list of files keeps their ticks and names.
bool canHide(int column)
{
    return column != ScanResultsModel::CheckColumn && column != ScanResultsModel::NameColumn &&
           column != ScanResultsModel::DetailColumn;
}

} // namespace

ColumnChooser::ColumnChooser(QHeaderView *header, const ScanResultsModel *model, QObject *parent)
    : QObject(parent)
    , m_header(header)
    , m_model(model)
    , m_menu(new QMenu(header))
{
    m_menu->setObjectName(QStringLiteral("ColumnMenu"));
    int visual = 0;
    for (const int column : kOrder) {
        m_header->moveSection(m_header->visualIndex(column), visual++);
        if (!canHide(column))
            continue;
        QAction *action = m_menu->addAction(
            model->headerData(column, Qt::Horizontal, Qt::DisplayRole).toString());
        action->setCheckable(true);
        action->setData(column);
        connect(action, &QAction::triggered, this, [this, column](bool checked) {
            m_chosen.insert(column, checked);
            refresh();
        });
    }
    m_menu->addSeparator();
    connect(m_menu->addAction(tr("恢复默认列")), &QAction::triggered, this,
            &ColumnChooser::restoreDefaults);
}

void ColumnChooser::setComplete(bool isComplete)
{
    m_isComplete = isComplete;
    refresh();
}

bool ColumnChooser::isShown(int column) const
{
    const bool saysNothing = m_isComplete && m_model->isUnknownThroughout(column);
    return !canHide(column) || m_chosen.value(column, !saysNothing);
}

void ColumnChooser::refresh()
{
    for (const int column : kOrder)
        m_header->setSectionHidden(column, !isShown(column));
}

void ColumnChooser::restoreDefaults()
{
    m_chosen.clear();
    refresh();
}

void ColumnChooser::popUp(const QPoint &position)
{
    for (QAction *action : m_menu->actions()) {
        if (action->isCheckable())
            action->setChecked(isShown(action->data().toInt()));
    }
    m_menu->popup(position);
}

} // namespace scanresults
