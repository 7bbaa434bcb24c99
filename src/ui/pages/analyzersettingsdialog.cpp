#include "ui/pages/analyzersettingsdialog.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/analyzersettingsdialog/sizeunits.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QPushButton>
#include <QSpinBox>

#include <limits>

using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kDialogWidth = 520;
constexpr int kUnitWidth = 88; ///< Base pixels.
constexpr int kLabelColumn = 0;
constexpr int kInputColumn = 1;
constexpr int kUnitColumn = 2;
constexpr int kColumns = 3;

} // namespace

AnalyzerSettingsDialog::AnalyzerSettingsDialog(const Settings &initial, QWidget *parent)
    : FramelessDialog(parent)
{
    setObjectName(QStringLiteral("AnalyzerSettingsDialog"));
    setWindowTitle(tr("扫描设置"));
    setContentWidth(kDialogWidth);
    buildLargeFilesCard();
    buildDuplicatesCard();
    buildButtons();
    connect(m_findDuplicates, &QCheckBox::toggled, this, &AnalyzerSettingsDialog::showWhatApplies);
    apply(initial);
    showWhatApplies();
}

QGridLayout *AnalyzerSettingsDialog::addCard(const QString &title)
{
    auto *card = new QFrame(this);
    card->setProperty("card", true);
    auto *column = new QVBoxLayout(card);
    column->setContentsMargins(metrics::kCardGap, metrics::kButtonGap, metrics::kCardGap,
                               metrics::kButtonGap);
    column->setSpacing(metrics::kFieldGap);
    auto *heading = new QLabel(title, card);
    heading->setObjectName(QStringLiteral("SectionTitle"));
    column->addWidget(heading);
    auto *grid = new QGridLayout;
    grid->setHorizontalSpacing(metrics::kFieldGap);
    grid->setVerticalSpacing(metrics::kFieldGap / 2);
    grid->setColumnStretch(kInputColumn, 1);
    column->addLayout(grid);
    contentLayout()->addWidget(card);
    return grid;
}

void AnalyzerSettingsDialog::addHint(QGridLayout *grid, const QString &hint)
{
    auto *label = new WrapLabel(hint, this);
    label->setObjectName(QStringLiteral("SubtleText"));
    grid->addWidget(label, grid->rowCount(), kLabelColumn, 1, kColumns);
}

AnalyzerSettingsDialog::SizeInput AnalyzerSettingsDialog::addSizeRow(QGridLayout *grid,
                                                                     const QString &text,
                                                                     const QString &name,
                                                                     const QString &hint)
{
    const SizeInput input = {new QSpinBox(this), new QComboBox(this)};
    input.number->setObjectName(name + QStringLiteral("Number"));
    input.number->setRange(1, std::numeric_limits<int>::max());
    input.unit->setObjectName(name + QStringLiteral("Unit"));
    input.unit->addItems({QStringLiteral("KB"), QStringLiteral("MB"), QStringLiteral("GB")});
    input.unit->setFixedWidth(ui::common::ThemeColors::current().fontPx(kUnitWidth));
    input.unit->setAccessibleName(tr("单位"));
    auto *label = new QLabel(text, this);
    label->setBuddy(input.number);
    const int row = grid->rowCount();
    grid->addWidget(label, row, kLabelColumn);
    grid->addWidget(input.number, row, kInputColumn);
    grid->addWidget(input.unit, row, kUnitColumn);
    addHint(grid, hint);
    return input;
}

QComboBox *AnalyzerSettingsDialog::addComboRow(QGridLayout *grid, const QString &text,
                                               const QString &name, const QString &hint)
{
    auto *combo = new QComboBox(this);
    combo->setObjectName(name);
    auto *label = new QLabel(text, this);
    label->setBuddy(combo);
    const int row = grid->rowCount();
    grid->addWidget(label, row, kLabelColumn);
    grid->addWidget(combo, row, kInputColumn, 1, kColumns - kInputColumn);
    if (!hint.isEmpty())
        addHint(grid, hint);
    return combo;
}

void AnalyzerSettingsDialog::buildLargeFilesCard()
{
    QGridLayout *grid = addCard(tr("大文件设置"));
    m_threshold = addSizeRow(grid, tr("大文件阈值:"), QStringLiteral("Threshold"),
                             tr("仅统计超过此大小的文件到「大文件排行」列表中"));
    m_maxFiles = addComboRow(grid, tr("最大显示数量:"), QStringLiteral("MaxFilesCombo"),
                             tr("大文件排行表格最多展示的行数"));
    for (int count : {100, 200, 500, 1000})
        m_maxFiles->addItem(QString::number(count), count);
    m_maxFiles->addItem(tr("不限"), 0);
}

void AnalyzerSettingsDialog::buildDuplicatesCard()
{
    QGridLayout *grid = addCard(tr("重复文件设置"));
    m_findDuplicates = new QCheckBox(tr("启用重复文件扫描"), this);
    m_findDuplicates->setObjectName(QStringLiteral("FindDuplicatesBox"));
    grid->addWidget(m_findDuplicates, grid->rowCount(), kLabelColumn, 1, kColumns);
    addHint(grid, tr("关闭可大幅缩短扫描时间（跳过哈希计算）"));
    m_compare = addComboRow(grid, tr("比较方式:"), QStringLiteral("CompareCombo"), QString());
    m_compare->addItem(tr("内容哈希（两阶段精确）"), true);
    m_compare->addItem(tr("文件名+大小（快速）"), false);
    m_dupMinSize = addSizeRow(grid, tr("最小文件大小:"), QStringLiteral("DuplicateSize"),
                              tr("小于此大小的文件不参与重复检测，值越大扫描越快"));
}

void AnalyzerSettingsDialog::buildButtons()
{
    QPushButton *cancel = addButton(tr("取消"));
    cancel->setObjectName(QStringLiteral("AnalyzerSettingsCancel"));
    QPushButton *start = addButton(tr("▶ 开始扫描"), QStringLiteral("primary"));
    start->setObjectName(QStringLiteral("AnalyzerSettingsStart"));
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(start, &QPushButton::clicked, this, [this] {
        emit startScanRequested(settings());
        accept();
    });
}

void AnalyzerSettingsDialog::setSize(const SizeInput &input, qint64 bytes)
{
    const analyzersettings::SizeInUnit size = analyzersettings::sizeInLargestUnit(bytes);
    input.number->setValue(size.number);
    input.unit->setCurrentIndex(size.unit);
}

qint64 AnalyzerSettingsDialog::sizeOf(const SizeInput &input)
{
    return analyzersettings::bytesOf({input.number->value(), input.unit->currentIndex()});
}

void AnalyzerSettingsDialog::apply(const Settings &settings)
{
    setSize(m_threshold, settings.largeFileThreshold);
    m_maxFiles->setCurrentIndex(qMax(0, m_maxFiles->findData(settings.maxLargeFiles)));
    m_findDuplicates->setChecked(settings.findDuplicates);
    m_compare->setCurrentIndex(m_compare->findData(settings.duplicateByHash));
    setSize(m_dupMinSize, settings.dupMinSize);
}

void AnalyzerSettingsDialog::showWhatApplies()
{
    const bool wanted = m_findDuplicates->isChecked();
    m_compare->setEnabled(wanted);
    m_dupMinSize.number->setEnabled(wanted);
    m_dupMinSize.unit->setEnabled(wanted);
}

AnalyzerSettingsDialog::Settings AnalyzerSettingsDialog::settings() const
{
    Settings settings;
    settings.largeFileThreshold = sizeOf(m_threshold);
    settings.maxLargeFiles = m_maxFiles->currentData().toInt();
    settings.findDuplicates = m_findDuplicates->isChecked();
    settings.duplicateByHash = m_compare->currentData().toBool();
    settings.dupMinSize = sizeOf(m_dupMinSize);
    return settings;
}
