#include "ui/pages/filesearchpage/searchresultmodel.h"

#include "ui/common/iconwidget.h"
#include "ui/common/theme.h"
#include "ui/common/utils/formatutils.h"
#include "ui/pages/filesearchpage/snippettext.h"

#include <QDir>
#include <QMimeData>
#include <QUrl>

#include <algorithm>

using ui::common::IconWidget;
using ui::common::ThemeColors;

namespace filesearch {

namespace {

constexpr int kIconPx = 16;

QString glyphOf(const QString &category)
{
    static const QHash<QString, ushort> kGlyphs = {
        {QStringLiteral("document"), 0xF15C}, {QStringLiteral("image"), 0xF1C5},
        {QStringLiteral("video"), 0xF1C8},    {QStringLiteral("audio"), 0xF1C7},
        {QStringLiteral("archive"), 0xF1C6},  {QStringLiteral("code"), 0xF1C9}};
    return QString(QChar(kGlyphs.value(category, 0xF15B)));
}

/// The file lies on a disk that is not there.
bool isOffline(const QVariantMap &result)
{
    return result.value(QStringLiteral("offline")).toBool();
}

} // namespace

SearchResultModel::SearchResultModel(QObject *parent)
    : QAbstractTableModel(parent)
{}

void SearchResultModel::setResults(const QVariantList &results)
{
    beginResetModel();
    m_answer = results;
    sortRows();
    endResetModel();
}

void SearchResultModel::sort(int column, Qt::SortOrder order)
{
    m_sortColumn = column;
    m_sortOrder = order;
    emit layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const QVariantList before = m_results;
    sortRows();
    const QModelIndexList old = persistentIndexList();
    for (const QModelIndex &index : old)
        changePersistentIndex(
            index, this->index(m_results.indexOf(before.at(index.row())), index.column()));
    emit layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

void SearchResultModel::sortRows()
{
    m_results = m_answer;
    static const QHash<int, QString> keys = {{NameColumn, QStringLiteral("name")},
                                             {PathColumn, QStringLiteral("path")},
                                             {SizeColumn, QStringLiteral("size")},
                                             {TimeColumn, QStringLiteral("modifiedMs")}};
    const QString key = keys.value(m_sortColumn);
    if (key.isEmpty())
        return;
    const bool isText = m_sortColumn == NameColumn || m_sortColumn == PathColumn;
    const auto isLess = [&](const QVariant &a, const QVariant &b) {
        const QVariant left = a.toMap().value(key);
        const QVariant right = b.toMap().value(key);
        return isText ? left.toString().localeAwareCompare(right.toString()) < 0
                      : left.toLongLong() < right.toLongLong();
    };
    std::stable_sort(m_results.begin(), m_results.end(), [&](const QVariant &a, const QVariant &b) {
        return m_sortOrder == Qt::AscendingOrder ? isLess(a, b) : isLess(b, a);
    });
}

QStringList SearchResultModel::mimeTypes() const
{
    return {QStringLiteral("text/uri-list")};
}

QMimeData *SearchResultModel::mimeData(const QModelIndexList &indexes) const
{
    QList<QUrl> urls;
    for (const QModelIndex &index : indexes) {
        const QUrl url = QUrl::fromLocalFile(index.data(PathRole).toString());
        if (!urls.contains(url))
            urls.append(url);
    }
    auto *data = new QMimeData;
    data->setUrls(urls);
    return data;
}

void SearchResultModel::setBusyPaths(const QSet<QString> &paths)
{
    m_busyPaths = paths;
    if (!m_results.isEmpty())
        emit dataChanged(index(0, 0), index(m_results.size() - 1, ColumnCount - 1));
}

int SearchResultModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_results.size();
}

int SearchResultModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant SearchResultModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_results.size())
        return QVariant();
    const QVariantMap result = m_results.at(index.row()).toMap();
    const QString path = result.value(QStringLiteral("path")).toString();
    switch (role) {
    case Qt::DisplayRole:
        return text(result, index.column());
    case Qt::ToolTipRole:
        return index.column() == NameColumn || index.column() == PathColumn
                   ? toolTipText(text(result, index.column()).toString())
                   : QVariant();
    case Qt::DecorationRole:
        return index.column() == NameColumn
                   ? categoryIcon(result.value(QStringLiteral("category")).toString())
                   : QVariant();
    case Qt::TextAlignmentRole:
        return QVariant(Qt::Alignment(
            Qt::AlignVCenter | (index.column() == SizeColumn ? Qt::AlignRight : Qt::AlignLeft)));
    case ResultRole:
        return result;
    case PathRole:
        return path;
    case BusyRole:
        return m_busyPaths.contains(path);
    case OfflineRole:
        return isOffline(result);
    case TagRole:
        if (isOffline(result))
            return tr("磁盘未连接");
        return result.value(QStringLiteral("match")) == QLatin1String("pinyin") ? tr("拼音")
                                                                                : QString();
    case Qt::ForegroundRole:
        return isOffline(result) ? QVariant(ThemeColors::current().textMuted) : QVariant();
    default:
        return QVariant();
    }
}

QVariant SearchResultModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return QVariant();
    if (role == Qt::TextAlignmentRole)
        return QVariant(Qt::Alignment(Qt::AlignVCenter |
                                      (section == SizeColumn ? Qt::AlignRight : Qt::AlignLeft)));
    if (role != Qt::DisplayRole)
        return QVariant();
    switch (section) {
    case NameColumn:
        return tr("文件名");
    case PathColumn:
        return tr("路径");
    case SizeColumn:
        return tr("大小");
    case TimeColumn:
        return tr("修改时间");
    default:
        return tr("操作");
    }
}

Qt::ItemFlags SearchResultModel::flags(const QModelIndex &index) const
{
    return index.isValid() ? Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemIsDragEnabled |
                                 Qt::ItemNeverHasChildren
                           : Qt::NoItemFlags;
}

QVariant SearchResultModel::text(const QVariantMap &result, int column) const
{
    switch (column) {
    case NameColumn:
        return result.value(QStringLiteral("name")).toString();
    case PathColumn:
        return result.value(QStringLiteral("path")).toString();
    case SizeColumn:
        return ui::common::utils::formatByteSize(result.value(QStringLiteral("size")).toLongLong());
    case TimeColumn:
        return ui::common::utils::formatTimestamp(
            result.value(QStringLiteral("modifiedMs")).toLongLong());
    default:
        return QVariant();
    }
}

QPixmap SearchResultModel::categoryIcon(const QString &category) const
{
    auto icon = m_icons.find(category);
    if (icon == m_icons.end()) {
        const ThemeColors &colors = ThemeColors::current();
        icon = m_icons.insert(category,
                              IconWidget::makeFontAwesomePixmap(glyphOf(category), colors.textMuted,
                                                                colors.fontPx(kIconPx)));
    }
    return *icon;
}

} // namespace filesearch
