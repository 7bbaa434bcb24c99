#include "ui/pages/recoverydetaildialog.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/wraplabel.h"

#include <QFormLayout>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

using recoveryresult::FileResult;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kWidth = 560;
constexpr int kTimelineLines = 8;
constexpr int kBodyPx = 13;
constexpr int kEditFrame = 18; ///< Padding and border of the text box, above and below.

} // namespace

RecoveryDetailDialog::RecoveryDetailDialog(const FileResult &result, bool isRunning,
                                           QWidget *parent)
    : FramelessDialog(parent)
{
    setObjectName(QStringLiteral("RecoveryDetailDialog"));
    setWindowTitle(tr("恢复详情"));
    setContentWidth(kWidth);
    buildHeading();
    buildFacts(result, isRunning);
    buildTimeline(result.timeline);
    QPushButton *close = addButton(tr("关闭"), QStringLiteral("primary"));
    close->setObjectName(QStringLiteral("RecoveryDetailCloseButton"));
    connect(close, &QPushButton::clicked, this, &QDialog::accept);
    close->setFocus();
}

void RecoveryDetailDialog::open(const FileResult &result, bool isRunning, QWidget *parent)
{
    auto *dialog = new RecoveryDetailDialog(result, isRunning, parent);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->QDialog::open();
}

void RecoveryDetailDialog::buildHeading()
{
    auto *title = new QLabel(tr("恢复详情"), this);
    title->setProperty("textRole", QStringLiteral("dialog-title"));
    auto *subtitle = new QLabel(tr("文件恢复过程与结果"), this);
    subtitle->setProperty("textRole", QStringLiteral("subtle"));
    auto *texts = new QVBoxLayout;
    texts->setSpacing(metrics::kFieldGap / 2);
    texts->addWidget(title);
    texts->addWidget(subtitle);
    contentLayout()->addLayout(texts);
}

void RecoveryDetailDialog::buildFacts(const FileResult &result, bool isRunning)
{
    auto *form = new QFormLayout;
    form->setHorizontalSpacing(metrics::kCardGap);
    form->setVerticalSpacing(metrics::kFieldGap);
    form->setLabelAlignment(Qt::AlignLeft | Qt::AlignTop);
    addFact(form, tr("文件名:"), result.name, "RecoveryDetailName");
    addFact(form, tr("文件 ID:"), result.fileId, "RecoveryDetailId");
    addFact(form, tr("当前状态:"), recoveryresult::statusText(result.status, isRunning),
            "RecoveryDetailStatus");
    addFact(form, tr("处理结论:"), recoveryresult::conclusion(result), "RecoveryDetailConclusion");
    contentLayout()->addLayout(form);
}

void RecoveryDetailDialog::addFact(QFormLayout *form, const QString &caption, const QString &value,
                                   const char *name)
{
    auto *label = new QLabel(caption, this);
    label->setProperty("textRole", QStringLiteral("subtle"));
    auto *text = new WrapLabel(value.isEmpty() ? QStringLiteral("--") : value, this);
    text->setObjectName(QLatin1String(name));
    form->addRow(label, text);
}

void RecoveryDetailDialog::buildTimeline(const QStringList &timeline)
{
    auto *section = new QLabel(tr("处理时序"), this);
    section->setObjectName(QStringLiteral("SectionTitle"));
    const QString text =
        timeline.isEmpty() ? tr("当前没有更详细的时序记录。") : timeline.join(QLatin1Char('\n'));
    auto *steps = new QPlainTextEdit(text, this);
    steps->setObjectName(QStringLiteral("RecoveryDetailTimeline"));
    steps->setReadOnly(true);
    steps->setTabChangesFocus(true);
    steps->setFixedHeight(kTimelineLines * metrics::lineHeight(kBodyPx) + kEditFrame);
    auto *column = new QVBoxLayout;
    column->setSpacing(metrics::kFieldGap);
    column->addWidget(section);
    column->addWidget(steps);
    contentLayout()->addLayout(column);
}
