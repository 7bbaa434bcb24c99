#include "ui/pages/partitionselectpage/diskgroupwidget.h"

#include "ui/common/elidedlabel.h"
#include "ui/common/flowlayout.h"
#include "ui/common/layoutmetrics.h"
#include "ui/pages/partitionselectpage/partitioncardwidget.h"
#include "ui/pages/partitionselectpage/partitionrules.h"

#include <QHBoxLayout>

using ui::common::ElidedLabel;
using ui::common::FlowLayout;
using ui::common::models::DiskGroup;
using ui::common::models::PartitionEntry;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kCardGapX = 14;
constexpr int kCardGapY = 12;

} // namespace

DiskGroupWidget::DiskGroupWidget(const DiskGroup &group, QWidget *parent)
    : QWidget(parent)
{
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(metrics::kFieldGap);
    column->addLayout(buildHeader(group));
    if (group.partitions.isEmpty()) {
        column->addWidget(buildEmptyBox());
        return;
    }
    auto *cards = new FlowLayout(nullptr, 0, kCardGapX, kCardGapY);
    for (const PartitionEntry &entry : group.partitions)
        cards->addWidget(new PartitionCardWidget(entry, this));
    column->addLayout(cards);
}

QHBoxLayout *DiskGroupWidget::buildHeader(const DiskGroup &group)
{
    const QString &title = group.diskTitle;
    auto *name = new ElidedLabel(title, Qt::ElideRight, this);
    name->setObjectName(QStringLiteral("SectionTitle"));
    auto *size = new QLabel(
        group.diskSize.isEmpty() ? partitionselect::diskSizeLabel(title) : group.diskSize, this);
    size->setObjectName(QStringLiteral("SubtleText"));
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kFieldGap);
    row->addWidget(name);
    row->addWidget(size);
    row->addWidget(buildDiskTag(partitionselect::diskTypeLabel(title)));
    row->addStretch(1);
    return row;
}

QWidget *DiskGroupWidget::buildDiskTag(const QString &label)
{
    auto *tag = new QLabel(label, this);
    tag->setObjectName(QStringLiteral("TagLabel"));
    tag->setProperty("tone", label == QStringLiteral("固态") ? QStringLiteral("blue")
                                                             : QStringLiteral("plain"));
    return tag;
}

QWidget *DiskGroupWidget::buildEmptyBox()
{
    auto *box = new QFrame(this);
    box->setObjectName(QStringLiteral("EmptyDiskBox"));
    auto *text = new QLabel(tr("没有可以扫描的分区"), box);
    text->setObjectName(QStringLiteral("SubtleText"));
    text->setAlignment(Qt::AlignCenter);
    auto *layout = new QVBoxLayout(box);
    layout->setContentsMargins(metrics::kCardPadding, metrics::kCardPadding, metrics::kCardPadding,
                               metrics::kCardPadding);
    layout->addWidget(text);
    return box;
}
