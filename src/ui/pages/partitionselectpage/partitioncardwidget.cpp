#include "ui/pages/partitionselectpage/partitioncardwidget.h"

#include "ui/common/accessibility.h"
#include "ui/common/elidedlabel.h"
#include "ui/common/iconwidget.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/common/widgetstyle.h"
#include "ui/pages/partitionselectpage/partitionrules.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QProgressBar>

using ui::common::ElidedLabel;
using ui::common::IconWidget;
using ui::common::LegacyColors;
using ui::common::ThemeColors;
using ui::common::models::PartitionEntry;
namespace metrics = ui::common::metrics;

namespace {

// Logical pixels; those in base pixels grow with the font scale.
constexpr int kBaseWidth = 236;
constexpr int kBaseHeight = 168;
constexpr int kBaseIcon = 32;
constexpr int kPadding = 12;
constexpr int kBarHeight = 10;

QLabel *subtleLabel(const QString &text, Qt::TextElideMode mode, QWidget *parent)
{
    auto *label = new ElidedLabel(text, mode, parent);
    label->setObjectName(QStringLiteral("SubtleText"));
    return label;
}

} // namespace

PartitionCardWidget::PartitionCardWidget(const PartitionEntry &entry, QWidget *parent)
    : QFrame(parent)
    , m_entry(entry)
    , m_selected(entry.selected)
    , m_icon(new IconWidget(IconWidget::Drive, this))
{
    const ThemeColors &theme = ThemeColors::current();
    partitionselect::splitPathAndFs(entry.pathAndFs, &m_devicePath, &m_fsType);
    setObjectName(QStringLiteral("PartitionCard"));
    setProperty("selected", m_selected);
    setProperty("dashed", entry.dashed);
    setFixedSize(theme.fontPx(kBaseWidth), theme.fontPx(kBaseHeight));
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::StrongFocus);
    ui::common::setAccessibleRole(this, QAccessible::RadioButton);
    setAccessibleName(entry.title + QLatin1Char(' ') + m_devicePath);
    m_icon->setFixedSize(theme.fontPx(kBaseIcon), theme.fontPx(kBaseIcon));
    m_icon->setColor(m_selected ? LegacyColors::partitionIconSelected()
                                : LegacyColors::partitionIcon());

    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(kPadding, kPadding, kPadding, kPadding);
    column->setSpacing(metrics::kFieldGap);
    column->addLayout(buildHeader());
    column->addStretch(1);
    column->addLayout(buildSizes());
    column->addWidget(buildUsageBar());
    column->addWidget(subtleLabel(tr("挂载点: ") + entry.mountPoint, Qt::ElideMiddle, this));
}

QHBoxLayout *PartitionCardWidget::buildHeader()
{
    auto *title = new ElidedLabel(m_entry.title, Qt::ElideRight, this);
    title->setObjectName(QStringLiteral("PartitionTitle"));
    auto *texts = new QVBoxLayout;
    texts->setSpacing(metrics::kFieldGap / 2);
    texts->addWidget(title);
    texts->addWidget(subtleLabel(m_devicePath, Qt::ElideMiddle, this));
    texts->addWidget(buildFsTypeBadge(m_fsType), 0, Qt::AlignLeft);
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kFieldGap);
    row->addWidget(m_icon, 0, Qt::AlignTop);
    row->addLayout(texts, 1);
    return row;
}

QHBoxLayout *PartitionCardWidget::buildSizes()
{
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kFieldGap);
    row->addWidget(subtleLabel(tr("已用: ") + m_entry.used, Qt::ElideRight, this));
    row->addStretch(1);
    QLabel *total = subtleLabel(tr("总计 ") + m_entry.total, Qt::ElideRight, this);
    total->setVisible(!m_entry.total.isEmpty()); // Free space has one size only.
    row->addWidget(total);
    return row;
}

QWidget *PartitionCardWidget::buildUsageBar()
{
    auto *bar = new QProgressBar(this);
    bar->setRange(0, 100);
    bar->setValue(qBound(0, m_entry.usage, 100));
    bar->setTextVisible(false);
    bar->setFixedHeight(kBarHeight);
    bar->setStyleSheet(
        QStringLiteral("QProgressBar { min-height: %1px; max-height: %1px; border-radius: %2px; }"
                       "QProgressBar::chunk { background: %3; border-radius: %2px; }")
            .arg(kBarHeight)
            .arg(kBarHeight / 2)
            .arg(partitionselect::progressChunkColor(m_entry.usage).name()));
    return bar;
}

QWidget *PartitionCardWidget::buildFsTypeBadge(const QString &fs)
{
    auto *badge = new ElidedLabel(fs, Qt::ElideRight, this);
    badge->setObjectName(QStringLiteral("TagLabel"));
    badge->setAlignment(Qt::AlignCenter);
    return badge;
}

void PartitionCardWidget::setSelected(bool selected)
{
    if (selected == m_selected)
        return;
    m_selected = selected;
    m_icon->setColor(selected ? LegacyColors::partitionIconSelected()
                              : LegacyColors::partitionIcon());
    ui::common::setStyleProperty(this, "selected", selected);
    ui::common::announceChosen(this);
}

void PartitionCardWidget::mousePressEvent(QMouseEvent *event)
{
    event->accept(); // The release must come here and not to what lies behind.
}

void PartitionCardWidget::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && rect().contains(event->pos()))
        emit clicked(m_devicePath, this);
}

void PartitionCardWidget::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Space:
    case Qt::Key_Return:
    case Qt::Key_Enter:
        emit clicked(m_devicePath, this);
        break;
    case Qt::Key_Left:
    case Qt::Key_Right:
    case Qt::Key_Up:
    case Qt::Key_Down:
        emit stepRequested(static_cast<Qt::Key>(event->key()), this);
        break;
    default:
        QFrame::keyPressEvent(event);
    }
}
