#include "ui/pages/filesearchpage/indexcards.h"

#include "ui/common/elidedlabel.h"
#include "ui/common/iconwidget.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"

#include <QHBoxLayout>
#include <QProgressBar>
#include <QPushButton>

using ui::common::ElidedLabel;
using ui::common::IconWidget;
using ui::common::ThemeColors;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace filesearch {

namespace {

constexpr int kCardMarginY = 12;
constexpr int kIconSize = 24;

QHBoxLayout *cardRow(QFrame *card)
{
    auto *row = new QHBoxLayout(card);
    row->setContentsMargins(metrics::kCardPadding, kCardMarginY, metrics::kCardPadding,
                            kCardMarginY);
    row->setSpacing(metrics::kCardGap);
    return row;
}

} // namespace

FirstUseCard::FirstUseCard(QWidget *parent)
    : QFrame(parent)
{
    setObjectName(QStringLiteral("FirstUseCard"));
    const ThemeColors &colors = ThemeColors::current();
    auto *icon = new IconWidget(IconWidget::Search, this);
    icon->setFixedSize(kIconSize, kIconSize);
    icon->setColor(colors.infoText);
    auto *text = new WrapLabel(tr("尚未创建文件索引。建立索引后可实现毫秒级搜索。"), this);
    text->setObjectName(QStringLiteral("FirstUseText"));
    auto *later = new QPushButton(tr("稍后再说"), this);
    later->setObjectName(QStringLiteral("FirstUseLaterButton"));
    auto *create = new QPushButton(tr("立即创建索引"), this);
    create->setObjectName(QStringLiteral("FirstUseCreateButton"));
    ui::common::setButtonRole(create, QStringLiteral("primary"));
    connect(later, &QPushButton::clicked, this, &FirstUseCard::dismissed);
    connect(create, &QPushButton::clicked, this, &FirstUseCard::createRequested);

    QHBoxLayout *row = cardRow(this);
    row->addWidget(icon);
    row->addWidget(text, 1);
    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(metrics::kButtonGap);
    buttons->addWidget(later);
    buttons->addWidget(create);
    row->addLayout(buttons);
}

BuildProgressCard::BuildProgressCard(QWidget *parent)
    : QFrame(parent)
    , m_text(new ElidedLabel(this))
    , m_stop(new QPushButton(this))
{
    setObjectName(QStringLiteral("BuildProgressCard"));
    m_text->setObjectName(QStringLiteral("BuildProgressText"));
    auto *bar = new QProgressBar(this);
    bar->setObjectName(QStringLiteral("BuildProgressBar"));
    bar->setRange(0, 0);
    bar->setTextVisible(false);
    m_stop->setObjectName(QStringLiteral("BuildStopButton"));
    connect(m_stop, &QPushButton::clicked, this, [this] {
        m_stop->setEnabled(false);
        m_stop->setText(tr("正在停止..."));
        emit stopRequested();
    });

    QHBoxLayout *row = cardRow(this);
    auto *column = new QVBoxLayout;
    column->setSpacing(metrics::kFieldGap);
    column->addWidget(m_text);
    column->addWidget(bar);
    row->addLayout(column, 1);
    row->addWidget(m_stop);
    reset();
}

void BuildProgressCard::reset()
{
    m_text->clear();
    m_stop->setText(tr("停止"));
    m_stop->setEnabled(true);
}

void BuildProgressCard::setText(const QString &text)
{
    m_text->setText(text);
}

} // namespace filesearch
