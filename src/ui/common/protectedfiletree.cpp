#include "ui/common/protectedfiletree.h"

#include "ui/common/emptystate.h"
#include "ui/common/itemviews.h"
#include "ui/common/theme.h"

#include <QHeaderView>
#include <QIcon>
#include <QKeyEvent>
#include <QScrollBar>
#include <QSharedPointer>
#include <QSignalBlocker>

using protectedfiles::DirectoryGroup;
using protectedfiles::ProtectedFile;

namespace ui {
namespace common {

constexpr char ProtectedFileTree::kDirectoryMark[];

namespace {

constexpr int kSizeWidth = 80; ///< Base pixels, like the next.
constexpr int kTimeWidth = 140;
constexpr int kGroupFontPx = 12;
constexpr Qt::ItemFlags kItemFlags =
    Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemIsUserCheckable;

/// Makes its texts when a row is shown: of tens of thousands of rows only a few are.
class FileItem : public QTreeWidgetItem
{
public:
    explicit FileItem(const ProtectedFile &file)
        : m_file(file)
    {
        setFlags(kItemFlags | Qt::ItemNeverHasChildren);
        setCheckState(ProtectedFileTree::NameColumn, Qt::Unchecked);
    }

    const QString &id() const { return m_file.id; }
    bool isChecked() const { return checkState(ProtectedFileTree::NameColumn) == Qt::Checked; }

    QVariant data(int column, int role) const override
    {
        switch (role) {
        case Qt::DisplayRole:
            return textOf(column);
        case Qt::UserRole:
            return column == ProtectedFileTree::NameColumn ? m_file.id : QVariant();
        default:
            return QTreeWidgetItem::data(column, role);
        }
    }

private:
    QString textOf(int column) const
    {
        switch (column) {
        case ProtectedFileTree::NameColumn:
            return m_file.fileName;
        case ProtectedFileTree::SizeColumn:
            return protectedfiles::byteText(m_file.fileSize);
        case ProtectedFileTree::TimeColumn:
            return protectedfiles::deletedText(m_file.deletedAt);
        default:
            return m_file.originalPath;
        }
    }

    ProtectedFile m_file;
};

const FileItem *fileItem(const QTreeWidgetItem *group, int row)
{
    return static_cast<const FileItem *>(group->child(row));
}

/// How a directory of these many files is marked.
Qt::CheckState groupState(int checked, int files)
{
    if (checked == 0)
        return Qt::Unchecked;
    return checked == files ? Qt::Checked : Qt::PartiallyChecked;
}

int checkedFiles(const QTreeWidgetItem *group)
{
    int checked = 0;
    for (int row = 0; row < group->childCount(); ++row)
        checked += fileItem(group, row)->isChecked() ? 1 : 0;
    return checked;
}

/// What all directories look alike in.
struct GroupLook
{
    QIcon icon;
    QFont font;
};

QSharedPointer<GroupLook> groupLook(const QFont &font)
{
    const auto look = QSharedPointer<GroupLook>::create();
    look->icon =
        QIcon::fromTheme(QStringLiteral("folder"), QIcon(QStringLiteral(":/icons/folder.png")));
    look->font = font;
    look->font.setBold(true);
    look->font.setPixelSize(ThemeColors::current().fontPx(kGroupFontPx));
    return look;
}

class GroupItem : public QTreeWidgetItem
{
public:
    GroupItem(const DirectoryGroup &group, const QSharedPointer<const GroupLook> &look)
        : m_text(protectedfiles::groupText(group))
        , m_size(group.totalSize)
        , m_look(look)
    {
        setFlags(kItemFlags);
        setCheckState(ProtectedFileTree::NameColumn, Qt::Unchecked);
        QList<QTreeWidgetItem *> files;
        files.reserve(group.files.size());
        for (const ProtectedFile &file : group.files)
            files.append(new FileItem(file));
        addChildren(files);
    }

    QVariant data(int column, int role) const override
    {
        if (column == ProtectedFileTree::SizeColumn && role == Qt::DisplayRole)
            return protectedfiles::byteText(m_size);
        if (column != ProtectedFileTree::NameColumn)
            return QTreeWidgetItem::data(column, role);
        switch (role) {
        case Qt::DisplayRole:
            return m_text;
        case Qt::DecorationRole:
            return m_look->icon;
        case Qt::FontRole:
            return m_look->font;
        case Qt::UserRole:
            return QString::fromLatin1(ProtectedFileTree::kDirectoryMark);
        default:
            return QTreeWidgetItem::data(column, role);
        }
    }

private:
    QString m_text;
    qint64 m_size;
    QSharedPointer<const GroupLook> m_look;
};

} // namespace

ProtectedFileTree::ProtectedFileTree(const QString &timeHeading, QWidget *parent)
    : QTreeWidget(parent)
    , m_empty(new EmptyState(IconWidget::Shield, viewport()))
{
    setHeaderLabels({tr("文件名"), tr("大小"), timeHeading, tr("原始路径")});
    setUpTree(this);
    setUpColumns();
    auto *delegate = new RowDelegate(this);
    delegate->setElideMode(NameColumn, Qt::ElideMiddle); // keeps the number of files of a directory
    delegate->setElideMode(PathColumn, Qt::ElideMiddle);
    setItemDelegate(delegate);
    connect(this, &QTreeWidget::itemChanged, this, &ProtectedFileTree::onTreeItemChanged);
    showWhetherEmpty();
}

void ProtectedFileTree::setUpColumns()
{
    const ThemeColors &colors = ThemeColors::current();
    header()->setSectionResizeMode(NameColumn, QHeaderView::Stretch);
    header()->setStretchLastSection(true);
    setColumnWidth(SizeColumn, colors.fontPx(kSizeWidth));
    setColumnWidth(TimeColumn, colors.fontPx(kTimeWidth));
}

void ProtectedFileTree::populate(const QVector<ProtectedFile> &files)
{
    const int place = verticalScrollBar()->value();
    {
        const QSignalBlocker blocker(this);
        clear();
        const QSharedPointer<GroupLook> look = groupLook(font());
        QList<QTreeWidgetItem *> items;
        const QVector<DirectoryGroup> groups = protectedfiles::groupByDirectory(files);
        items.reserve(groups.size());
        for (const DirectoryGroup &group : groups)
            items.append(new GroupItem(group, look));
        addTopLevelItems(items);
        // One by one, each would lay out the rows below it again.
        expandAll();
        showWhetherEmpty();
    }
    verticalScrollBar()->setValue(place);
    emit checkedCountChanged(0);
}

QStringList ProtectedFileTree::checkedIds() const
{
    QStringList ids;
    for (int i = 0; i < topLevelItemCount(); ++i) {
        const QTreeWidgetItem *group = topLevelItem(i);
        for (int row = 0; row < group->childCount(); ++row) {
            const FileItem *file = fileItem(group, row);
            if (file->isChecked() && !file->id().isEmpty())
                ids.append(file->id());
        }
    }
    return ids;
}

void ProtectedFileTree::onTreeItemChanged(QTreeWidgetItem *item, int column)
{
    if (column != NameColumn)
        return;
    const Qt::CheckState state = item->checkState(NameColumn);
    if (!item->parent() && state == Qt::PartiallyChecked)
        return;
    {
        // The view, too, would look for each of the changed rows.
        const QSignalBlocker blocker(this);
        const QSignalBlocker modelBlocker(model());
        if (QTreeWidgetItem *group = item->parent()) {
            group->setCheckState(NameColumn, groupState(checkedFiles(group), group->childCount()));
        } else {
            for (int row = 0; row < item->childCount(); ++row)
                item->child(row)->setCheckState(NameColumn, state);
        }
    }
    viewport()->update();
    int checked = 0;
    for (int i = 0; i < topLevelItemCount(); ++i)
        checked += checkedFiles(topLevelItem(i));
    emit checkedCountChanged(checked);
}

void ProtectedFileTree::keyPressEvent(QKeyEvent *event)
{
    QTreeWidgetItem *item = currentItem();
    if (event->key() != Qt::Key_Space || event->modifiers() != Qt::NoModifier || !item) {
        QTreeWidget::keyPressEvent(event);
        return;
    }
    // Also where another column has the focus.
    const bool checked = item->checkState(NameColumn) == Qt::Checked;
    item->setCheckState(NameColumn, checked ? Qt::Unchecked : Qt::Checked);
}

void ProtectedFileTree::resizeEvent(QResizeEvent *event)
{
    QTreeWidget::resizeEvent(event);
    m_empty->setGeometry(viewport()->rect());
}

void ProtectedFileTree::showWhetherEmpty()
{
    m_empty->setGeometry(viewport()->rect());
    m_empty->setVisible(topLevelItemCount() == 0);
}

} // namespace common
} // namespace ui
