#include "ui/pages/scansettingsdialog.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/wraplabel.h"

#include <QComboBox>
#include <QGridLayout>
#include <QPushButton>

using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kDialogWidth = 520;

struct Choice
{
    const char *value;
    const char *text; ///< UTF-8.
};

struct Option
{
    const char *key;
    const char *objectName;
    const char *label;     ///< UTF-8.
    QList<Choice> choices; ///< The first one is the default.
};

const QList<Option> &options()
{
    static const QList<Option> kOptions = {
        {"fileScope",
         "FileScopeCombo",
         "文件范围:",
         {{"all", "全部文件"},
          {"documentsOnly", "仅文档"},
          {"mediaOnly", "仅图片与视频"},
          {"codeAndLogs", "仅代码与日志"}}},
        {"deepResultSource",
         "DeepResultSourceCombo",
         "深度扫描结果来源:",
         {{"metadataAndDeep", "元数据 + 深度扫描（推荐）"}, {"deepOnly", "仅深度扫描"}}},
        {"deepScanScope",
         "DeepScanScopeCombo",
         "深度扫描范围:",
         {{"unallocatedOnly", "仅未分配空间（推荐）"}, {"fullDisk", "全盘扫描"}}},
    };
    return kOptions;
}

} // namespace

ScanSettingsDialog::ScanSettingsDialog(const QJsonObject &initial, QWidget *parent)
    : FramelessDialog(parent)
{
    setObjectName(QStringLiteral("ScanSettingsDialog"));
    setWindowTitle(tr("扫描设置"));
    setContentWidth(kDialogWidth);

    auto *subtitle = new WrapLabel(tr("仅保留会真实影响扫描结果的选项。"), this);
    subtitle->setObjectName(QStringLiteral("SubtleText"));
    contentLayout()->addWidget(subtitle);
    contentLayout()->addWidget(buildSection());
    auto *note = new WrapLabel(tr("说明：后两项仅在“深度扫描”模式下生效，用于控制是否先结合 EXT4 "
                                  "元数据结果，以及 carving 是否只扫描未分配空间。"),
                               this);
    note->setObjectName(QStringLiteral("SubtleText"));
    contentLayout()->addWidget(note);
    buildButtons();
    applyInitial(initial);
}

QWidget *ScanSettingsDialog::buildSection()
{
    auto *section = new QFrame(this);
    section->setProperty("card", true);
    auto *grid = new QGridLayout(section);
    grid->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                             metrics::kCardGap);
    grid->setHorizontalSpacing(metrics::kCardGap);
    grid->setVerticalSpacing(metrics::kCardGap);
    grid->setColumnStretch(1, 1);
    for (const Option &option : options()) {
        auto *combo = new QComboBox(section);
        combo->setObjectName(QString::fromLatin1(option.objectName));
        for (const Choice &choice : option.choices)
            combo->addItem(QString::fromUtf8(choice.text), QString::fromLatin1(choice.value));
        auto *label = new QLabel(QString::fromUtf8(option.label), section);
        label->setBuddy(combo);
        const int row = m_combos.size();
        grid->addWidget(label, row, 0);
        grid->addWidget(combo, row, 1);
        m_combos.append(combo);
    }
    return section;
}

void ScanSettingsDialog::buildButtons()
{
    QPushButton *cancel = addButton(tr("取消"));
    cancel->setObjectName(QStringLiteral("ScanSettingsCancel"));
    QPushButton *apply = addButton(tr("应用设置"), QStringLiteral("primary"));
    apply->setObjectName(QStringLiteral("ScanSettingsApply"));
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(apply, &QPushButton::clicked, this, &QDialog::accept);
}

void ScanSettingsDialog::applyInitial(const QJsonObject &initial)
{
    for (int i = 0; i < m_combos.size(); ++i) {
        const QLatin1String key(options().at(i).key);
        setComboValue(m_combos.at(i), initial.value(key).toString());
    }
}

void ScanSettingsDialog::setComboValue(QComboBox *combo, const QString &value)
{
    const int index = combo->findData(value);
    if (index >= 0)
        combo->setCurrentIndex(index);
}

QJsonObject ScanSettingsDialog::toJson() const
{
    QJsonObject settings;
    for (int i = 0; i < m_combos.size(); ++i)
        settings.insert(QLatin1String(options().at(i).key),
                        m_combos.at(i)->currentData().toString());
    return settings;
}
