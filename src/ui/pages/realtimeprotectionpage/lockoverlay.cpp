#include "ui/pages/realtimeprotectionpage/lockoverlay.h"

#include "ui/common/iconwidget.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"

#include <QEvent>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

using ui::common::IconWidget;
using ui::common::ThemeColors;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kGroundAlpha = 220;
constexpr int kRadius = 10;
constexpr int kIconSize = 48;

} // namespace

LockOverlay::LockOverlay(QWidget *frame)
    : QWidget(frame)
{
    setObjectName(QStringLiteral("LockOverlay"));
    buildContent();
    frame->installEventFilter(this);
    cover();
}

void LockOverlay::buildContent()
{
    auto *icon = new IconWidget(IconWidget::Shield, this);
    icon->setFixedSize(kIconSize, kIconSize);
    icon->setColor(ThemeColors::current().textMuted);
    auto *heading = new QLabel(tr("受保护文件列表已锁定"), this);
    heading->setObjectName(QStringLiteral("LockHeading"));
    heading->setProperty("textRole", QStringLiteral("section"));
    auto *hint = new WrapLabel(tr("输入当前用户密码以查看和操作受保护的文件"), this);
    hint->setObjectName(QStringLiteral("LockHint"));
    hint->setAlignment(Qt::AlignHCenter);
    m_unlock = new QPushButton(tr("验证身份"), this);
    m_unlock->setObjectName(QStringLiteral("UnlockButton"));
    ui::common::setButtonRole(m_unlock, QStringLiteral("primary"));
    m_message = new WrapLabel(this);
    m_message->setObjectName(QStringLiteral("LockMessage"));
    m_message->setProperty("tone", QStringLiteral("error"));
    m_message->setAlignment(Qt::AlignHCenter);
    m_message->hide();
    connect(m_unlock, &QPushButton::clicked, this, &LockOverlay::unlockRequested);
    setServiceAvailable(false);

    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kCardPadding, metrics::kCardPadding, metrics::kCardPadding,
                               metrics::kCardPadding);
    column->setSpacing(metrics::kFieldGap);
    column->addStretch(1);
    column->addWidget(icon, 0, Qt::AlignHCenter);
    column->addSpacing(metrics::kFieldGap);
    column->addWidget(heading, 0, Qt::AlignHCenter);
    column->addWidget(hint);
    column->addSpacing(metrics::kFieldGap);
    column->addWidget(m_unlock, 0, Qt::AlignHCenter);
    column->addWidget(m_message);
    column->addStretch(1);
}

void LockOverlay::setLocked(bool locked)
{
    setVisible(locked);
    if (!locked)
        return;
    cover();
    raise();
}

void LockOverlay::setServiceAvailable(bool available)
{
    ui::common::setUsable(m_unlock, available ? QString() : tr("守护进程未连接，无法验证"));
}

void LockOverlay::setMessage(const QString &message)
{
    m_message->setText(message);
    m_message->setVisible(!message.isEmpty());
}

void LockOverlay::cover()
{
    setGeometry(parentWidget()->rect());
}

bool LockOverlay::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == parent() && event->type() == QEvent::Resize)
        cover();
    return QWidget::eventFilter(watched, event);
}

void LockOverlay::paintEvent(QPaintEvent *event)
{
    QWidget::paintEvent(event);
    QColor ground = ThemeColors::current().windowBackground;
    ground.setAlpha(kGroundAlpha);
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(ground);
    painter.drawRoundedRect(rect(), kRadius, kRadius);
}
