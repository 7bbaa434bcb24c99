#include "ui/common/busynote.h"

#include "ui/common/keptroom.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/sharewidgets.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>

namespace fileshare {

namespace {

constexpr int kBarWidth = 96;

} // namespace

BusyNote::BusyNote(QWidget *parent)
    : QWidget(parent)
    , m_text(subtleLabel(QString(), this))
{
    setObjectName(QStringLiteral("ShareBusyNote"));
    m_text->setObjectName(QStringLiteral("ShareBusyText"));
    auto *bar = new QProgressBar(this);
    bar->setRange(0, 0);
    bar->setFixedWidth(kBarWidth);
    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(ui::common::metrics::kFieldGap);
    row->addWidget(m_text);
    row->addWidget(bar);
    ui::common::keepRoomWhenHidden(this);
    hide();
}

void BusyNote::setText(const QString &text)
{
    m_text->setText(text);
    setVisible(!text.isEmpty());
}

} // namespace fileshare
