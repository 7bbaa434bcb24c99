#include "ui/pages/wechatcleanpage/busypanel.h"

#include "ui/common/elidedlabel.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/wraplabel.h"

#include <QHBoxLayout>
#include <QProgressBar>
#include <QPushButton>

using ui::common::ElidedLabel;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace wechatclean {

BusyPanel::BusyPanel(QWidget *parent)
    : QFrame(parent)
    , m_title(new QLabel(this))
    , m_text(new ElidedLabel(this))
    , m_percent(new QLabel(this))
    , m_bar(new QProgressBar(this))
    , m_note(new WrapLabel(this))
    , m_stop(new QPushButton(tr("停止"), this))
{
    setProperty("card", true);
    m_title->setObjectName(QStringLiteral("WechatBusyTitle"));
    m_title->setProperty("textRole", QStringLiteral("section"));
    m_text->setObjectName(QStringLiteral("WechatBusyText"));
    m_percent->setObjectName(QStringLiteral("WechatBusyPercent"));
    m_bar->setObjectName(QStringLiteral("WechatProgressBar"));
    m_bar->setTextVisible(false);
    m_note->setObjectName(QStringLiteral("WechatBusyNote"));
    m_note->setProperty("textRole", QStringLiteral("subtle"));
    m_stop->setObjectName(QStringLiteral("WechatStopButton"));
    connect(m_stop, &QPushButton::clicked, this, [this] {
        showStopping();
        emit stopRequested();
    });

    auto *texts = new QHBoxLayout;
    texts->setSpacing(metrics::kCardGap);
    texts->addWidget(m_text, 1);
    texts->addWidget(m_percent);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kPageMargin, metrics::kPageMargin, metrics::kPageMargin,
                               metrics::kPageMargin);
    column->setSpacing(metrics::kFieldGap);
    column->addStretch(1);
    column->addWidget(m_title);
    column->addLayout(texts);
    column->addWidget(m_bar);
    column->addWidget(m_note);
    column->addSpacing(metrics::kFieldGap);
    column->addWidget(m_stop, 0, Qt::AlignRight);
    column->addStretch(2);
}

void BusyPanel::begin(const QString &title, const QString &text, bool mayStop, const QString &note)
{
    m_title->setText(title);
    m_note->setText(note);
    m_note->setVisible(!note.isEmpty());
    m_stop->setVisible(mayStop);
    m_stop->setEnabled(true);
    setProgress(-1, text);
}

void BusyPanel::setProgress(int percent, const QString &text)
{
    m_text->setText(text);
    m_bar->setRange(0, percent < 0 ? 0 : 100);
    m_bar->setValue(percent);
    m_percent->setText(percent < 0 ? QString() : tr("%1%").arg(qMin(percent, 100)));
}

void BusyPanel::showStopping()
{
    m_stop->setEnabled(false);
    m_text->setText(tr("正在停止..."));
}

} // namespace wechatclean
