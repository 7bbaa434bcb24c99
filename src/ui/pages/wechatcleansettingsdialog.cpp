#include "ui/pages/wechatcleansettingsdialog.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/wraplabel.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QPushButton>
#include <QSpinBox>

using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kDialogWidth = 480;
constexpr int kMostUnits = 9999;
constexpr qint64 kKilobyte = 1024;
constexpr qint64 kMegabyte = 1024 * kKilobyte;
constexpr qint64 kGigabyte = 1024 * kMegabyte;

} // namespace

WechatCleanSettingsDialog::WechatCleanSettingsDialog(QWidget *parent)
    : FramelessDialog(parent)
{
    setObjectName(QStringLiteral("WechatCleanSettingsDialog"));
    setWindowTitle(tr("微信清理设置"));
    setContentWidth(kDialogWidth);
    contentLayout()->addWidget(buildSection());
    QPushButton *cancel = addButton(tr("取消"));
    cancel->setObjectName(QStringLiteral("WechatSettingsCancel"));
    QPushButton *save = addButton(tr("保存"), QStringLiteral("primary"));
    save->setObjectName(QStringLiteral("WechatSettingsSave"));
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(save, &QPushButton::clicked, this, &QDialog::accept);
    setSettings(Settings());
}

QWidget *WechatCleanSettingsDialog::buildSection()
{
    auto *section = new QFrame(this);
    section->setProperty("card", true);
    auto *title = new QLabel(tr("扫描与清理"), section);
    title->setObjectName(QStringLiteral("SectionTitle"));
    m_value = new QSpinBox(section);
    m_value->setObjectName(QStringLiteral("WechatMinSizeSpin"));
    m_value->setRange(1, kMostUnits);
    m_unit = new QComboBox(section);
    m_unit->setObjectName(QStringLiteral("WechatMinSizeUnit"));
    m_unit->addItem(QStringLiteral("KB"), kKilobyte);
    m_unit->addItem(QStringLiteral("MB"), kMegabyte);
    m_unit->addItem(QStringLiteral("GB"), kGigabyte);
    m_unit->setAccessibleName(tr("单位"));
    auto *label = new QLabel(tr("最小重复文件大小"), section);
    label->setBuddy(m_value);
    auto *hint = new WrapLabel(tr("小于该大小的文件不会参与重复扫描，数值越大扫描越快。"), section);
    hint->setObjectName(QStringLiteral("SubtleText"));

    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kFieldGap);
    row->addWidget(label, 1);
    row->addWidget(m_value);
    row->addWidget(m_unit);
    auto *column = new QVBoxLayout(section);
    column->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                               metrics::kCardGap);
    column->setSpacing(metrics::kCardGap);
    column->addWidget(title);
    column->addLayout(row);
    column->addWidget(hint);
    return section;
}

WechatCleanSettingsDialog::Settings WechatCleanSettingsDialog::settings() const
{
    Settings settings;
    settings.minSize = m_value->value() * m_unit->currentData().toLongLong();
    return settings;
}

void WechatCleanSettingsDialog::setSettings(const Settings &settings)
{
    qint64 factor = kGigabyte;
    if (settings.minSize < kMegabyte)
        factor = kKilobyte;
    else if (settings.minSize < kGigabyte)
        factor = kMegabyte;
    m_unit->setCurrentIndex(m_unit->findData(factor));
    m_value->setValue(static_cast<int>(qMin<qint64>(settings.minSize / factor, kMostUnits)));
}
