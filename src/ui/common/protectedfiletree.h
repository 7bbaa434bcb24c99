#pragma once

#include "ui/common/utils/protectedfiles.h"

#include <QStringList>
#include <QTreeWidget>

namespace ui {
namespace common {

class EmptyState;

/// The files of a vault under the directories they lay in, with tick marks: a directory's mark sets
/// those of its files, and theirs decide its own. Space ticks the current row. Top-level items are
/// the directories and hold kDirectoryMark under Qt::UserRole, file items hold the file's id.
class ProtectedFileTree : public QTreeWidget
{
    Q_OBJECT

public:
    enum Column { NameColumn, SizeColumn, TimeColumn, PathColumn, ColumnCount };

    static constexpr char kDirectoryMark[] = "__dir__";

    /// `timeHeading` stands above the time of deletion.
    explicit ProtectedFileTree(const QString &timeHeading, QWidget *parent = nullptr);

    /// Shows these files, all directories open, nothing ticked; the place in the list stays.
    void populate(const QVector<protectedfiles::ProtectedFile> &files);
    /// Ids of the ticked files in the order of the rows; files without an id are left out.
    QStringList checkedIds() const;
    /// What stands in place of rows while there are none.
    EmptyState *emptyState() const { return m_empty; }

signals:
    /// The number of ticked files may have changed; also after populate().
    void checkedCountChanged(int count);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void setUpColumns();
    void onTreeItemChanged(QTreeWidgetItem *item, int column);
    void showWhetherEmpty();

    EmptyState *m_empty;
};

} // namespace common
} // namespace ui
