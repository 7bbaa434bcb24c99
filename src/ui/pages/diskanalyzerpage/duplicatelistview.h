#pragma once

#include "ui/common/rowmenu.h"

#include <QListView>
#include <QPersistentModelIndex>

namespace diskanalyzer {

class DuplicateModel;

/// Paints the duplicate groups as cards: only what is in view costs anything, however many there
/// are. Space keeps or releases the current file, Enter opens its directory, Delete asks for the
/// removal of what the current group does not keep.
class DuplicateListView : public QListView, public ui::common::RowActionSource
{
    Q_OBJECT

public:
    /// What of a row can be clicked.
    enum Part { NoPart, KeepPart, OpenPart, DeletePart };

    explicit DuplicateListView(DuplicateModel *model, QWidget *parent = nullptr);

    /// Where the part stands, in the viewport's coordinates; empty if the row has none such.
    QRect partRect(const QModelIndex &index, Part part) const;
    QVector<ui::common::RowAction> ownActions(const QModelIndex &index) override;

signals:
    void openDirRequested(const QString &filePath);
    void deleteGroupRequested(int group);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    struct Place
    {
        QPersistentModelIndex index;
        Part part = NoPart;
        bool operator==(const Place &other) const
        {
            return index == other.index && part == other.part;
        }
    };

    Place placeAt(const QPoint &position) const;
    void setHovered(const Place &place);
    void activate(const QModelIndex &index, Part part);

    DuplicateModel *m_duplicates;
    Place m_hovered;
    Place m_pressed;
};

} // namespace diskanalyzer
