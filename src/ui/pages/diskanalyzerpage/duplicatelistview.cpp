#include "ui/pages/diskanalyzerpage/duplicatelistview.h"

#include "ui/pages/diskanalyzerpage/duplicatecarddelegate.h"
#include "ui/pages/diskanalyzerpage/duplicatemodel.h"

#include <QMouseEvent>

namespace diskanalyzer {

namespace {

/// Rows laid out at once; the rest follows from the event loop.
constexpr int kBatch = 500;

} // namespace

DuplicateListView::DuplicateListView(DuplicateModel *model, QWidget *parent)
    : QListView(parent)
    , m_duplicates(model)
{
    setProperty("frameless", true);
    setModel(model);
    setItemDelegate(new DuplicateCardDelegate(model, this));
    setMouseTracking(true);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setResizeMode(QListView::Adjust);
    setLayoutMode(QListView::Batched);
    setBatchSize(kBatch);
    connect(model, &QAbstractItemModel::modelReset, this, [this] {
        m_hovered = Place();
        m_pressed = Place();
    });
}

QRect DuplicateListView::partRect(const QModelIndex &index, Part part) const
{
    if (!index.isValid())
        return QRect();
    return static_cast<DuplicateCardDelegate *>(itemDelegate())
        ->partRect(visualRect(index), index, part);
}

DuplicateListView::Place DuplicateListView::placeAt(const QPoint &position) const
{
    const QModelIndex index = indexAt(position);
    for (Part part : {KeepPart, OpenPart, DeletePart}) {
        if (partRect(index, part).contains(position))
            return Place{index, part};
    }
    return Place{index, NoPart};
}

QVector<ui::common::RowAction> DuplicateListView::ownActions(const QModelIndex &index)
{
    QVector<ui::common::RowAction> actions;
    const QPersistentModelIndex kept(index);
    const auto add = [&](const QString &text, Part part) {
        actions.append({text, part == DeletePart, [this, kept, part] {
                            if (kept.isValid())
                                activate(kept, part);
                        }});
    };
    if (const DuplicateFile *file = m_duplicates->fileAt(index)) {
        add(tr("打开目录"), OpenPart);
        add(file->keep ? tr("不保留此文件") : tr("保留此文件"), KeepPart);
    }
    add(tr("清理此组"), DeletePart);
    return actions;
}

void DuplicateListView::setHovered(const Place &place)
{
    if (m_hovered == place)
        return;
    m_hovered = place;
    static_cast<DuplicateCardDelegate *>(itemDelegate())->setHovered(place.index, place.part);
    if (place.part == NoPart)
        viewport()->unsetCursor();
    else
        viewport()->setCursor(Qt::PointingHandCursor);
    viewport()->update();
}

void DuplicateListView::activate(const QModelIndex &index, Part part)
{
    switch (part) {
    case KeepPart:
        m_duplicates->toggleKeep(index);
        break;
    case OpenPart:
        if (const DuplicateFile *file = m_duplicates->fileAt(index))
            emit openDirRequested(file->path);
        break;
    case DeletePart:
        emit deleteGroupRequested(index.data(DuplicateModel::GroupRole).toInt());
        break;
    case NoPart:
        break;
    }
}

void DuplicateListView::mousePressEvent(QMouseEvent *event)
{
    QListView::mousePressEvent(event);
    m_pressed = event->button() == Qt::LeftButton ? placeAt(event->pos()) : Place();
}

void DuplicateListView::mouseDoubleClickEvent(QMouseEvent *event)
{
    mousePressEvent(event); // Two quick clicks are two clicks.
}

void DuplicateListView::mouseReleaseEvent(QMouseEvent *event)
{
    QListView::mouseReleaseEvent(event);
    const Place pressed = m_pressed;
    m_pressed = Place();
    if (event->button() == Qt::LeftButton && pressed.index.isValid() &&
        placeAt(event->pos()) == pressed)
        activate(pressed.index, pressed.part);
}

void DuplicateListView::mouseMoveEvent(QMouseEvent *event)
{
    QListView::mouseMoveEvent(event);
    setHovered(placeAt(event->pos()));
}

void DuplicateListView::leaveEvent(QEvent *event)
{
    QListView::leaveEvent(event);
    setHovered(Place());
}

void DuplicateListView::keyPressEvent(QKeyEvent *event)
{
    const QModelIndex current = currentIndex();
    if (!current.isValid()) {
        QListView::keyPressEvent(event);
        return;
    }
    switch (event->key()) {
    case Qt::Key_Space:
        activate(current, KeepPart);
        break;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        activate(current, OpenPart);
        break;
    case Qt::Key_Delete:
        activate(current, DeletePart);
        break;
    default:
        QListView::keyPressEvent(event);
    }
}

void DuplicateListView::resizeEvent(QResizeEvent *event)
{
    QListView::resizeEvent(event);
    if (event->size().width() != event->oldSize().width())
        scheduleDelayedItemsLayout();
}

} // namespace diskanalyzer
