#include "ui/common/emptystate.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/common/wraplabel.h"

#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

namespace ui {
namespace common {

namespace {

constexpr int kIconSize = 48;
constexpr int kBusyWidth = 160;

} // namespace

EmptyState::EmptyState(IconWidget::IconType icon, QWidget *parent)
    : QWidget(parent)
    , m_icon(new IconWidget(icon, this))
    , m_busy(new QProgressBar(this))
    , m_title(new QLabel(this))
    , m_hint(new WrapLabel(this))
    , m_action(new QPushButton(this))
{
    m_icon->setObjectName(QStringLiteral("EmptyStateIcon"));
    m_icon->setFixedSize(kIconSize, kIconSize);
    m_busy->setObjectName(QStringLiteral("EmptyStateBusyBar"));
    m_busy->setRange(0, 0);
    m_busy->setFixedWidth(kBusyWidth);
    m_title->setObjectName(QStringLiteral("EmptyStateTitle"));
    m_title->setTextFormat(Qt::PlainText);
    m_hint->setObjectName(QStringLiteral("EmptyStateHint"));
    m_hint->setAlignment(Qt::AlignHCenter);
    m_hint->hide();
    m_action->setObjectName(QStringLiteral("EmptyStateButton"));
    m_action->hide();
    connect(m_action, &QPushButton::clicked, this, &EmptyState::actionTriggered);
    arrange();
    setTone(Tone::Plain);
}

void EmptyState::arrange()
{
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kPageMargin, metrics::kPageMargin, metrics::kPageMargin,
                               metrics::kPageMargin);
    column->setSpacing(metrics::kFieldGap);
    column->addStretch(1);
    column->addWidget(m_icon, 0, Qt::AlignHCenter);
    column->addWidget(m_busy, 0, Qt::AlignHCenter);
    column->addSpacing(metrics::kFieldGap);
    column->addWidget(m_title, 0, Qt::AlignHCenter);
    column->addWidget(m_hint);
    column->addSpacing(metrics::kFieldGap);
    column->addWidget(m_action, 0, Qt::AlignHCenter);
    column->addStretch(1);
}

void EmptyState::setTexts(const QString &title, const QString &hint)
{
    m_title->setText(title);
    m_hint->setText(hint);
    m_hint->setVisible(!hint.isEmpty());
}

void EmptyState::setIcon(IconWidget::IconType icon)
{
    m_icon->setType(icon);
}

void EmptyState::setTone(Tone tone)
{
    const ThemeColors &colors = ThemeColors::current();
    m_icon->setColor(tone == Tone::Error ? colors.dangerText : colors.textMuted);
    m_icon->setVisible(tone != Tone::Busy);
    m_busy->setVisible(tone == Tone::Busy);
}

void EmptyState::setActionText(const QString &text)
{
    m_action->setText(text);
    m_action->setVisible(!text.isEmpty());
}

} // namespace common
} // namespace ui
