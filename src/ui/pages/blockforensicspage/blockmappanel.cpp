#include "ui/pages/blockforensicspage/blockmappanel.h"

#include "core/jsonnumber.h"
#include "ui/common/elidedlabel.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/blockforensicspage/blockmaprules.h"
#include "ui/pages/blockforensicspage/blockmapwidget.h"
#include "ui/pages/blockforensicspage/forensicsrules.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QJsonObject>
#include <QScrollArea>
#include <QScrollBar>
#include <QStackedWidget>
#include <QVBoxLayout>

using ui::common::ElidedLabel;
using ui::common::LegacyColors;
using ui::common::ThemeColors;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace blockforensics {

namespace {

constexpr int kMaxMapHeight = 320;
constexpr int kInfoWidth = 210;
constexpr int kSwatch = 12;

} // namespace

BlockMapPanel::BlockMapPanel(QWidget *parent)
    : QFrame(parent)
    , m_map(new BlockMapWidget)
    , m_scroll(new QScrollArea(this))
    , m_message(new WrapLabel(this))
{
    setProperty("card", true);
    m_map->setObjectName(QStringLiteral("BlockMap"));
    m_map->setClickCallback([this](int index) { onBlockClicked(index); });
    m_scroll->setWidget(m_map);
    m_scroll->setWidgetResizable(true);
    m_scroll->setFrameShape(QFrame::NoFrame);
    m_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // A bar that comes and goes would change the map's width, and with it whether the bar is
    // needed.
    m_scroll->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    m_map->installEventFilter(this);
    m_message->setObjectName(QStringLiteral("BlockMapMessage"));

    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kCardGap);
    row->addWidget(m_scroll, 1);
    row->addWidget(m_message, 1);
    row->addWidget(buildInfo(), 0, Qt::AlignTop);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                               metrics::kCardGap);
    column->setSpacing(metrics::kCardGap);
    column->addWidget(buildHeading());
    column->addLayout(row);
}

QWidget *BlockMapPanel::buildHeading()
{
    auto *heading = new QWidget(this);
    auto *title = new QLabel(tr("块状态图"), heading);
    title->setObjectName(QStringLiteral("SectionTitle"));
    auto *row = new QHBoxLayout(heading);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(metrics::kCardGap);
    row->addWidget(title);
    row->addStretch(1);
    const auto addEntry = [heading, row](const QColor &color, const QString &text) {
        auto *swatch = new QFrame(heading);
        swatch->setFixedSize(kSwatch, kSwatch);
        swatch->setStyleSheet(
            QStringLiteral("background: %1; border-radius: 2px;").arg(color.name()));
        auto *entry = new QHBoxLayout;
        entry->setSpacing(metrics::kFieldGap);
        entry->addWidget(swatch);
        entry->addWidget(new QLabel(text, heading));
        row->addLayout(entry);
    };
    addEntry(LegacyColors::blockUnchanged(), tr("未变"));
    addEntry(LegacyColors::blockChanged(), tr("已变"));
    addEntry(LegacyColors::blockZeroed(), tr("清零"));
    return heading;
}

QWidget *BlockMapPanel::buildInfo()
{
    auto *hint = new WrapLabel(tr("点击方块查看详情"), this);
    hint->setObjectName(QStringLiteral("BlockInfoHint"));
    hint->setProperty("textRole", QStringLiteral("subtle"));
    hint->setAlignment(Qt::AlignTop);
    auto *facts = new QWidget(this);
    auto *form = new QFormLayout(facts);
    form->setContentsMargins(0, 0, 0, 0);
    form->setHorizontalSpacing(metrics::kCardGap);
    form->setVerticalSpacing(metrics::kFieldGap);
    m_index = addRow(form, tr("块号"), "BlockInfoIndex");
    m_physical = addRow(form, tr("物理块号"), "BlockInfoPhysical");
    m_status = addRow(form, tr("状态"), "BlockInfoStatus");
    m_original = addRow(form, tr("原始SHA"), "BlockInfoOriginal");
    m_current = addRow(form, tr("当前SHA"), "BlockInfoCurrent");
    m_infoViews = new QStackedWidget(this);
    m_infoViews->setFixedWidth(ThemeColors::current().fontPx(kInfoWidth));
    m_infoViews->addWidget(hint);
    m_infoViews->addWidget(facts);
    return m_infoViews;
}

ElidedLabel *BlockMapPanel::addRow(QFormLayout *form, const QString &caption, const char *name)
{
    auto *label = new QLabel(caption, this);
    label->setProperty("textRole", QStringLiteral("subtle"));
    auto *value = new ElidedLabel(QString(), Qt::ElideRight, this);
    value->setObjectName(QLatin1String(name));
    form->addRow(label, value);
    return value;
}

void BlockMapPanel::setBlocks(const QJsonArray &blocks)
{
    m_map->setBlocks(blocks);
    m_scroll->verticalScrollBar()->setValue(0);
    m_infoViews->setCurrentIndex(0);
    if (blocks.isEmpty()) {
        showMessage(tr("该次验证没有块数据。"), false);
        return;
    }
    m_message->hide();
    m_scroll->show();
    m_infoViews->show();
    fitHeight();
}

void BlockMapPanel::showMessage(const QString &message, bool isError)
{
    ui::common::setStyleProperty(m_message, "tone", isError ? QStringLiteral("error") : QString());
    m_message->setText(message);
    m_message->show();
    m_scroll->hide();
    m_infoViews->hide();
}

bool BlockMapPanel::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_map && event->type() == QEvent::Resize)
        fitHeight();
    return QFrame::eventFilter(watched, event);
}

void BlockMapPanel::fitHeight()
{
    m_scroll->setFixedHeight(qBound(kCellPitch, m_map->height(), kMaxMapHeight));
}

void BlockMapPanel::onBlockClicked(int index)
{
    const QJsonObject block = m_map->blocks().at(index).toObject();
    const auto number = [&block](const char *key) {
        return QString::number(core::toInt64(block.value(QLatin1String(key))));
    };
    const auto showHash = [&block](ElidedLabel *label, const char *key) {
        const QString hash = block.value(QLatin1String(key)).toString();
        label->setText(shortHash(hash));
        label->setToolTip(hash);
    };
    m_index->setText(number("blockIndex"));
    m_physical->setText(number("physicalBlock"));
    const StatusLook look = statusLook(block.value(QLatin1String("status")).toString());
    m_status->setText(look.text);
    m_status->setStyleSheet(QStringLiteral("color: %1;").arg(look.color.name()));
    showHash(m_original, "originalSha256");
    showHash(m_current, "currentSha256");
    m_infoViews->setCurrentIndex(1);
}

} // namespace blockforensics
