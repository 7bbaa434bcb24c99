#include "ui/common/shareparameterform.h"

#include "core/shareport.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/portspinbox.h"
#include "ui/common/styletemplate.h"
#include "ui/common/utils/sharetext.h"
#include "ui/common/wraplabel.h"

#include <QComboBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>

using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace fileshare {

namespace {

constexpr int kDefaultMaxClients = 10;
constexpr int kMostClients = 999;

struct Duration
{
    int minutes;
    const char *text; ///< UTF-8.
};

constexpr Duration kDurations[] = {
    {0, "不限时"},   {30, "30 分钟"}, {60, "1 小时"},    {120, "2 小时"},
    {240, "4 小时"}, {480, "8 小时"}, {1440, "24 小时"},
};

WrapLabel *hintLabel(const char *name, QWidget *parent)
{
    auto *label = new WrapLabel(parent);
    label->setObjectName(QLatin1String(name));
    label->setProperty("textRole", QStringLiteral("subtle"));
    return label;
}

} // namespace

ShareParameterForm::ShareParameterForm(QWidget *parent)
    : QWidget(parent)
    , m_grid(new QGridLayout(this))
    , m_port(new PortSpinBox(core::kDefaultSharePort, this))
    , m_portHint(hintLabel("SharePortHint", this))
    , m_password(new QLineEdit(this))
    , m_accessMode(new QComboBox(this))
    , m_duration(new QComboBox(this))
    , m_maxClients(new QSpinBox(this))
    , m_exposure(hintLabel("ShareExposureHint", this))
{
    setStyleSheet(ui::common::fillStyleTemplate(
        QStringLiteral("QSpinBox#SharePortSpin { background: @headerBackground@; }")));
    buildFields();
    m_grid->setContentsMargins(0, 0, 0, 0);
    m_grid->setHorizontalSpacing(metrics::kCardGap);
    m_grid->setVerticalSpacing(metrics::kFieldGap);
    m_grid->setColumnStretch(1, 1);
    addRow(tr("端口:"), m_port);
    m_grid->addWidget(m_portHint, m_grid->rowCount(), 1);
    addRow(tr("密码:"), m_password);
    addRow(tr("共享权限:"), m_accessMode);
    addRow(tr("时长:"), m_duration);
    addRow(tr("最大连接数:"), m_maxClients);
    m_grid->addWidget(m_exposure, m_grid->rowCount(), 0, 1, 2);
    connect(m_password, &QLineEdit::textChanged, this, &ShareParameterForm::showExposure);
    connect(m_accessMode, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &ShareParameterForm::showExposure);
    showExposure();
}

void ShareParameterForm::buildFields()
{
    m_port->setReadOnly(true);
    m_port->setButtonSymbols(QAbstractSpinBox::NoButtons);
    m_port->setFocusPolicy(Qt::ClickFocus);
    m_password->setObjectName(QStringLiteral("SharePasswordEdit"));
    m_password->setEchoMode(QLineEdit::Password);
    m_password->setPlaceholderText(tr("留空则无密码"));
    m_accessMode->setObjectName(QStringLiteral("ShareAccessModeCombo"));
    for (const QString &mode : {QStringLiteral("download"), QStringLiteral("upload")})
        m_accessMode->addItem(permissionText(mode), mode);
    m_duration->setObjectName(QStringLiteral("ShareDurationCombo"));
    for (const Duration &duration : kDurations)
        m_duration->addItem(QString::fromUtf8(duration.text), duration.minutes);
    m_maxClients->setObjectName(QStringLiteral("ShareMaxClientsSpin"));
    m_maxClients->setRange(1, kMostClients);
    m_maxClients->setValue(kDefaultMaxClients);
}

void ShareParameterForm::addRow(const QString &caption, QWidget *field)
{
    auto *label = new QLabel(caption, this);
    label->setBuddy(field);
    const int row = m_grid->rowCount();
    m_grid->addWidget(label, row, 0);
    m_grid->addWidget(field, row, 1);
}

int ShareParameterForm::port() const
{
    return m_port->value();
}

QString ShareParameterForm::password() const
{
    return m_password->text();
}

QString ShareParameterForm::accessMode() const
{
    return m_accessMode->currentData().toString();
}

int ShareParameterForm::durationMin() const
{
    return m_duration->currentData().toInt();
}

int ShareParameterForm::maxClients() const
{
    return m_maxClients->value();
}

void ShareParameterForm::setPort(int port, const QString &hint, const QString &toolTip)
{
    m_port->setValue(port);
    m_port->setToolTip(toolTip);
    m_portHint->setText(hint);
}

void ShareParameterForm::clearPassword()
{
    m_password->clear();
}

void ShareParameterForm::setValues(const QString &accessMode, int durationMin, int maxClients)
{
    m_accessMode->setCurrentIndex(qMax(0, m_accessMode->findData(accessMode)));
    const int minutes = qMax(0, durationMin);
    if (m_duration->findData(minutes) < 0)
        m_duration->addItem(durationText(minutes), minutes);
    m_duration->setCurrentIndex(m_duration->findData(minutes));
    m_maxClients->setValue(maxClients);
}

void ShareParameterForm::showExposure()
{
    m_exposure->setText(exposureText(!m_password->text().isEmpty(), accessMode()));
}

} // namespace fileshare
