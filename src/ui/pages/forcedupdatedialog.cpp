#include "ui/pages/forcedupdatedialog.h"

#include "ui/common/keptroom.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/wraplabel.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVariant>

using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kFull = 100;

} // namespace

ForcedUpdateDialog::ForcedUpdateDialog(QWidget *parent)
    : FramelessDialog(parent)
    , m_stage(new WrapLabel(tr("正在检查更新..."), this))
    , m_bar(new QProgressBar(this))
    , m_barText(new QLabel(this))
{
    setObjectName(QStringLiteral("ForcedUpdateDialog"));
    setWindowTitle(tr("正在更新"));
    // It would not close anything.
    findChild<QWidget *>(QStringLiteral("WinCtlClose"))->hide();
    auto *line = new WrapLabel(tr("检测到重要更新，正在自动完成下载和安装，请勿关闭程序。"), this);
    line->setObjectName(QStringLiteral("ForcedUpdateLine"));
    m_stage->setObjectName(QStringLiteral("ForcedUpdateStage"));
    m_bar->setObjectName(QStringLiteral("ForcedUpdateBar"));
    m_bar->setTextVisible(false);
    m_barText->setObjectName(QStringLiteral("ForcedUpdatePercent"));
    m_barText->setProperty("textRole", QStringLiteral("subtle"));
    ui::common::keepRoomWhenHidden(m_barText);
    m_barText->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_barText->setText(QStringLiteral("100%"));
    m_barText->setMinimumSize(m_barText->sizeHint());
    auto *progress = new QHBoxLayout;
    progress->setSpacing(metrics::kFieldGap);
    progress->addWidget(m_bar, 1);
    progress->addWidget(m_barText);
    contentLayout()->addWidget(line);
    contentLayout()->addWidget(m_stage);
    contentLayout()->addLayout(progress);

    m_exit = addButton(tr("退出程序"));
    m_exit->setObjectName(QStringLiteral("ForcedUpdateExit"));
    m_retry = addButton(tr("重试更新"), QStringLiteral("primary"));
    m_retry->setObjectName(QStringLiteral("ForcedUpdateRetry"));
    connect(m_exit, &QPushButton::clicked, this, &ForcedUpdateDialog::exitRequested);
    connect(m_retry, &QPushButton::clicked, this, &ForcedUpdateDialog::retryRequested);
    setBar(true, QString());
    setButtonsVisible(false);
}

void ForcedUpdateDialog::setStageText(const QString &text, bool busy)
{
    setStage(text, tr("正在处理更新任务..."));
    setBar(busy, QString());
    setButtonsVisible(false);
}

void ForcedUpdateDialog::setDownloadProgress(qint64 received, qint64 total)
{
    if (total < 1) {
        setBar(true, QString());
        return;
    }
    setBar(false, QStringLiteral("%p%"));
    // In floating point, since a hundredfold byte count of a hostile answer may not fit.
    const double percent = double(received) * kFull / double(total);
    m_bar->setValue(static_cast<int>(qBound(0.0, percent, double(kFull))));
    m_barText->setText(m_bar->text());
}

void ForcedUpdateDialog::showFailureState(const QString &text)
{
    setStage(text, tr("更新失败，请重试。"));
    setBar(false, tr("失败"));
    setButtonsVisible(true);
}

void ForcedUpdateDialog::showPreparingExitState(const QString &text)
{
    setStage(text, tr("更新程序已启动，应用即将退出。"));
    setBar(true, QString());
    setButtonsVisible(false);
}

void ForcedUpdateDialog::reject()
{
    if (m_allowClose)
        FramelessDialog::reject();
}

void ForcedUpdateDialog::setStage(const QString &text, const QString &fallback)
{
    m_stage->setText(text.isEmpty() ? fallback : text);
}

void ForcedUpdateDialog::setBar(bool busy, const QString &format)
{
    m_bar->setRange(0, busy ? 0 : kFull);
    m_bar->setFormat(format.isEmpty() ? QStringLiteral("%p%") : format);
    m_bar->setValue(0);
    m_barText->setText(busy || format.isEmpty() ? QString() : format);
    m_barText->setVisible(!m_barText->text().isEmpty());
    if (isVisible())
        fitToContent();
}

void ForcedUpdateDialog::setButtonsVisible(bool visible)
{
    m_allowClose = false;
    m_exit->setVisible(visible);
    m_retry->setVisible(visible);
    if (isVisible())
        fitToContent();
}
