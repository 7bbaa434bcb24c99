#include "ui/common/sharepathlist.h"

#include "ui/common/utils/sharetext.h"

#include <QKeyEvent>

namespace fileshare {

namespace {

constexpr int kPathRole = Qt::UserRole;

} // namespace

SharePathList::SharePathList(QWidget *parent)
    : QListWidget(parent)
{
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setTextElideMode(Qt::ElideMiddle);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setUniformItemSizes(true);
}

QStringList SharePathList::paths() const
{
    QStringList paths;
    for (int row = 0; row < count(); ++row)
        paths.append(item(row)->data(kPathRole).toString());
    return paths;
}

void SharePathList::setPaths(const QStringList &paths)
{
    clear();
    addPaths(paths);
    emit pathsChanged();
}

int SharePathList::addPaths(const QStringList &paths)
{
    const QStringList added = newPaths(this->paths(), paths);
    for (const QString &path : added) {
        auto *row = new QListWidgetItem(pathRowText(path), this);
        row->setData(kPathRole, path);
        row->setToolTip(plainTip(path));
    }
    if (!added.isEmpty())
        emit pathsChanged();
    return added.size();
}

void SharePathList::removeSelected()
{
    const QList<QListWidgetItem *> chosen = selectedItems();
    if (chosen.isEmpty())
        return;
    qDeleteAll(chosen);
    emit pathsChanged();
}

void SharePathList::clearPaths()
{
    clear();
    emit pathsChanged();
}

void SharePathList::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Delete) {
        removeSelected();
        return;
    }
    QListWidget::keyPressEvent(event);
}

} // namespace fileshare
