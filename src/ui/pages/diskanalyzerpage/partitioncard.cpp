#include "ui/pages/diskanalyzerpage/partitioncard.h"

#include "ui/common/accessibility.h"
#include "ui/common/elidedlabel.h"
#include "ui/common/iconwidget.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/common/utils/formatutils.h"
#include "ui/common/widgetstyle.h"
#include "ui/pages/diskanalyzerpage/analyzertext.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QProgressBar>

using ui::common::ElidedLabel;
using ui::common::IconWidget;
using ui::common::ThemeColors;
namespace metrics = ui::common::metrics;

namespace diskanalyzer {

namespace {

constexpr int kWidth = 232; ///< Base pixels.
constexpr int kIconSize = 20;
constexpr int kPadding = 12;
constexpr int kLineGap = 6;
// From here on a partition counts as filling up, and as nearly full; percent.
constexpr int kFilling = 75;
constexpr int kNearlyFull = 90;

} // namespace

PartitionCard::PartitionCard(const PartitionInfo &partition, QWidget *parent)
    : QFrame(parent)
{
    const ThemeColors &theme = ThemeColors::current();
    const int percent = usedPercent(partition);
    setObjectName(QStringLiteral("PartitionCard"));
    setProperty("selected", false);
    setProperty("mountPath", partition.mountPath);
    setFixedWidth(theme.fontPx(kWidth));
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::StrongFocus);
    ui::common::setAccessibleRole(this, QAccessible::RadioButton);
    setAccessibleName(partitionTitle(partition));
    setToolTip(ui::common::utils::plainTip(
        QStringLiteral("%1\n%2 · %3")
            .arg(partition.mountPath, partition.device, partition.fsType)));

    auto *icon = new QLabel(this);
    icon->setPixmap(IconWidget::makeFontAwesomePixmap(iconGlyphForMount(partition.mountPath),
                                                      theme.infoText, theme.fontPx(kIconSize)));
    auto *title = new ElidedLabel(partitionTitle(partition), Qt::ElideMiddle, this);
    title->setObjectName(QStringLiteral("PartitionTitle"));
    auto *sizes = new ElidedLabel(QStringLiteral("%1 / %2").arg(formatSize(partition.usedBytes),
                                                                formatSize(partition.totalBytes)),
                                  Qt::ElideRight, this);
    sizes->setObjectName(QStringLiteral("SubtleText"));
    auto *share = new QLabel(QStringLiteral("%1%").arg(percent), this);
    share->setObjectName(QStringLiteral("PartitionShare"));

    auto *head = new QHBoxLayout;
    head->setSpacing(metrics::kFieldGap);
    head->addWidget(icon);
    head->addWidget(title, 1);
    auto *numbers = new QHBoxLayout;
    numbers->setSpacing(metrics::kFieldGap);
    numbers->addWidget(sizes, 1);
    numbers->addWidget(share);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(kPadding, kPadding, kPadding, kPadding);
    column->setSpacing(kLineGap);
    column->addLayout(head);
    column->addLayout(numbers);
    column->addWidget(buildBar(percent));
}

QWidget *PartitionCard::buildBar(int percent)
{
    auto *bar = new QProgressBar(this);
    bar->setRange(0, 100);
    bar->setValue(percent);
    bar->setTextVisible(false);
    if (percent >= kNearlyFull)
        bar->setProperty("tone", QStringLiteral("danger"));
    else if (percent >= kFilling)
        bar->setProperty("tone", QStringLiteral("warning"));
    return bar;
}

void PartitionCard::setSelected(bool selected)
{
    if (property("selected").toBool() == selected)
        return;
    ui::common::setStyleProperty(this, "selected", selected);
    ui::common::announceChosen(this);
}

void PartitionCard::mousePressEvent(QMouseEvent *event)
{
    event->accept(); // The release must come here and not to what lies behind.
}

void PartitionCard::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && rect().contains(event->pos()))
        emit clicked();
}

void PartitionCard::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Space:
    case Qt::Key_Return:
    case Qt::Key_Enter:
        emit clicked();
        break;
    case Qt::Key_Left:
    case Qt::Key_Up:
        emit stepRequested(-1);
        break;
    case Qt::Key_Right:
    case Qt::Key_Down:
        emit stepRequested(1);
        break;
    default:
        QFrame::keyPressEvent(event);
    }
}

} // namespace diskanalyzer
