#include "ui/common/statwidgets.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/widgetstyle.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

namespace ui {
namespace common {

namespace {

constexpr int kDotSize = 8;

/// Value of the property by which the style sheet picks the colours.
QString styleName(StatusPill::Type type)
{
    switch (type) {
    case StatusPill::Success:
        return QStringLiteral("success");
    case StatusPill::Warning:
        return QStringLiteral("warning");
    case StatusPill::Danger:
        return QStringLiteral("danger");
    case StatusPill::Info:
        break;
    }
    return QStringLiteral("info");
}

} // namespace

StatBlock::StatBlock(const QString &title, const QString &value, QWidget *parent)
    : QWidget(parent)
    , m_value(new QLabel(value, this))
{
    auto *titleLabel = new QLabel(title, this);
    titleLabel->setObjectName(QStringLiteral("StatTitle"));
    titleLabel->setTextFormat(Qt::PlainText);
    m_value->setObjectName(QStringLiteral("LargeValue"));
    m_value->setTextFormat(Qt::PlainText);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(4);
    column->addWidget(titleLabel);
    column->addWidget(m_value);
}

void StatBlock::setValue(const QString &value)
{
    m_value->setText(value);
}

StatusPill::StatusPill(const QString &text, Type type, QWidget *parent)
    : QFrame(parent)
    , m_dot(new QLabel(this))
    , m_text(new QLabel(text, this))
    , m_type(type)
{
    m_dot->setObjectName(QStringLiteral("StatusPillDot"));
    m_dot->setFixedSize(kDotSize, kDotSize);
    m_text->setObjectName(QStringLiteral("StatusPillText"));
    m_text->setTextFormat(Qt::PlainText);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(10, 2, 10, 2);
    row->setSpacing(6);
    row->addWidget(m_dot);
    row->addWidget(m_text);
    setProperty("pill", styleName(type));
}

void StatusPill::setText(const QString &text)
{
    m_text->setText(text);
}

void StatusPill::setType(Type type)
{
    m_type = type;
    setStyleProperty(this, "pill", styleName(type));
}

} // namespace common
} // namespace ui
