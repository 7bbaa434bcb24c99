#include "ui/pages/scanresultspage/recoverytoolbar.h"

#include "ui/common/elidedlabel.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/utils/formatutils.h"
#include "ui/common/widgetstyle.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

using ui::common::ElidedLabel;
namespace metrics = ui::common::metrics;

namespace scanresults {

RecoveryToolbar::RecoveryToolbar(QWidget *parent)
    : QFrame(parent)
{
    setObjectName(QStringLiteral("BottomToolbar"));
    setProperty("card", true);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                               metrics::kCardGap);
    column->setSpacing(metrics::kFieldGap);
    column->addLayout(makeOutputRow());
    column->addLayout(makeActionRow());
    showChecked(0, 0, 0);
    setExporting(false);
    setScanRunning(false);
}

QHBoxLayout *RecoveryToolbar::makeOutputRow()
{
    auto *label = new QLabel(tr("输出目录"), this);
    m_output = new QLineEdit(this);
    m_output->setObjectName(QStringLiteral("OutputPathEdit"));
    m_output->setPlaceholderText(tr("请选择恢复文件的输出目录..."));
    m_output->setClearButtonEnabled(true);
    label->setBuddy(m_output);
    auto *browse = new QPushButton(tr("浏览"), this);
    browse->setObjectName(QStringLiteral("BrowseButton"));
    connect(browse, &QPushButton::clicked, this, &RecoveryToolbar::browseClicked);
    connect(m_output, &QLineEdit::textChanged, m_output, &QWidget::setToolTip);
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kButtonGap);
    row->addWidget(label);
    row->addWidget(m_output, 1);
    row->addWidget(browse);
    return row;
}

QHBoxLayout *RecoveryToolbar::makeActionRow()
{
    m_export = new QPushButton(this);
    m_export->setObjectName(QStringLiteral("ExportLogButton"));
    m_hint = new ElidedLabel(tr("扫描进行中，建议定期导出日志用于恢复审计"), Qt::ElideRight, this);
    m_hint->setObjectName(QStringLiteral("ExportHint"));
    m_hint->setProperty("textRole", QStringLiteral("subtle"));
    m_checked = new QLabel(this);
    m_checked->setObjectName(QStringLiteral("CheckedCountLabel"));
    m_recover = new QPushButton(tr("恢复选中文件"), this);
    m_recover->setObjectName(QStringLiteral("StartRecoveryButton"));
    ui::common::setButtonRole(m_recover, QStringLiteral("primary"));
    connect(m_export, &QPushButton::clicked, this, &RecoveryToolbar::exportClicked);
    connect(m_recover, &QPushButton::clicked, this, &RecoveryToolbar::recoverClicked);
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kButtonGap);
    row->addWidget(m_export);
    // While it shows, the hint takes all the room that there is.
    row->addWidget(m_hint, 100);
    row->addStretch(1);
    row->addWidget(m_checked);
    row->addSpacing(metrics::kFieldGap);
    row->addWidget(m_recover);
    return row;
}

QString RecoveryToolbar::outputPath() const
{
    return m_output->text().trimmed();
}

void RecoveryToolbar::setOutputPath(const QString &path)
{
    m_output->setText(path);
}

void RecoveryToolbar::focusOutputPath()
{
    m_output->setFocus();
}

void RecoveryToolbar::showChecked(int count, qint64 bytes, int hidden)
{
    m_checked->setText(
        tr("%1 项 · %2").arg(QString::number(count), ui::common::utils::formatByteSize(bytes)));
    m_checked->setToolTip(hidden > 0 ? tr("其中 %1 项被筛选条件隐藏，仍会一起恢复").arg(hidden)
                                     : QString());
    m_recover->setText(tr("恢复选中文件"));
}

void RecoveryToolbar::setScanRunning(bool running)
{
    m_hint->setVisible(running);
}

void RecoveryToolbar::setExporting(bool exporting)
{
    m_export->setText(exporting ? tr("正在导出...") : tr("导出日志"));
    m_export->setEnabled(!exporting);
}

} // namespace scanresults
