#include "ui/pages/wechatcleanpage/resultpanel.h"

#include "ui/common/elidedlabel.h"
#include "ui/common/emptystate.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/statwidgets.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/wechatcleanpage/cleantexts.h"
#include "ui/pages/wechatcleanpage/resultlist.h"

#include <QHBoxLayout>
#include <QPushButton>
#include <QStackedWidget>

using ui::common::ElidedLabel;
using ui::common::EmptyState;
using ui::common::IconWidget;
using ui::common::StatusPill;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace wechatclean {

ResultPanel::ResultPanel(QWidget *parent)
    : QWidget(parent)
    , m_stack(new QStackedWidget(this))
    , m_list(new ResultList(this))
{
    m_stack->setObjectName(QStringLiteral("WechatResultStack"));
    m_stack->addWidget(m_list);
    m_stack->addWidget(buildNoResultCard());
    connect(m_list, &ResultList::cleanRequested, this, &ResultPanel::cleanRequested);
    connect(m_list, &ResultList::openFolderRequested, this, &ResultPanel::openFolderRequested);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(metrics::kCardGap);
    column->addWidget(buildHead());
    column->addWidget(m_stack, 1);
    setTabOrder(m_cleanAll, m_list);
}

QWidget *ResultPanel::buildHead()
{
    auto *head = new QFrame(this);
    head->setObjectName(QStringLiteral("WechatResultHead"));
    head->setProperty("card", true);
    auto *caption = new QLabel(tr("当前扫描目录"), head);
    m_dirs = new ElidedLabel(QString(), Qt::ElideMiddle, head);
    m_dirs->setObjectName(QStringLiteral("WechatScanDirs"));
    m_dirs->setProperty("textRole", QStringLiteral("subtle"));
    auto *adjust = new QPushButton(tr("调整目录"), head);
    adjust->setObjectName(QStringLiteral("WechatAdjustDirsButton"));
    adjust->setProperty("role", QStringLiteral("quiet"));
    m_summary = new WrapLabel(head);
    m_summary->setObjectName(QStringLiteral("WechatSummaryLine"));
    m_summary->setProperty("textRole", QStringLiteral("section"));
    auto *rescan = new QPushButton(tr("重新扫描"), head);
    rescan->setObjectName(QStringLiteral("WechatRescanButton"));
    m_cleanAll = new QPushButton(tr("一键清理"), head);
    m_cleanAll->setObjectName(QStringLiteral("WechatCleanAllButton"));
    ui::common::setButtonRole(m_cleanAll, QStringLiteral("primary"));
    m_note =
        new WrapLabel(tr("合并后，每组文件变成指向保留文件的硬链接，共用同一份内容：修改其中一个，"
                         "其余也会随之改变。"),
                      head);
    m_note->setObjectName(QStringLiteral("WechatMergeNote"));
    m_note->setProperty("textRole", QStringLiteral("subtle"));
    connect(adjust, &QPushButton::clicked, this, &ResultPanel::adjustRequested);
    connect(rescan, &QPushButton::clicked, this, &ResultPanel::rescanRequested);
    connect(m_cleanAll, &QPushButton::clicked, this, &ResultPanel::cleanAllRequested);

    auto *where = new QHBoxLayout;
    where->setSpacing(metrics::kFieldGap);
    where->addWidget(caption);
    where->addWidget(m_dirs, 1);
    where->addWidget(adjust);
    auto *what = new QHBoxLayout;
    what->setSpacing(metrics::kButtonGap);
    what->addWidget(m_summary, 1);
    what->addWidget(rescan);
    what->addWidget(m_cleanAll);
    auto *column = new QVBoxLayout(head);
    column->setContentsMargins(metrics::kCardPadding, metrics::kFieldGap, metrics::kCardPadding,
                               metrics::kCardGap);
    column->setSpacing(metrics::kFieldGap);
    column->addLayout(where);
    column->addLayout(what);
    column->addWidget(buildOutcome(head));
    column->addWidget(m_note);
    return head;
}

QWidget *ResultPanel::buildOutcome(QWidget *parent)
{
    m_outcome = new QWidget(parent);
    m_outcome->setObjectName(QStringLiteral("WechatOutcome"));
    m_outcomePill = new StatusPill(QString(), StatusPill::Success, m_outcome);
    m_outcomePill->setObjectName(QStringLiteral("WechatOutcomePill"));
    m_outcomeText = new WrapLabel(m_outcome);
    m_outcomeText->setObjectName(QStringLiteral("WechatOutcomeText"));
    auto *row = new QHBoxLayout(m_outcome);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(metrics::kFieldGap);
    row->addWidget(m_outcomePill, 0, Qt::AlignTop);
    row->addWidget(m_outcomeText, 1);
    return m_outcome;
}

QWidget *ResultPanel::buildNoResultCard()
{
    auto *card = new QFrame(this);
    card->setProperty("card", true);
    m_noResult = new EmptyState(IconWidget::Search, card);
    m_noResult->setObjectName(QStringLiteral("WechatNoResultCard"));
    connect(m_noResult, &EmptyState::actionTriggered, this, &ResultPanel::rescanRequested);
    auto *column = new QVBoxLayout(card);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(m_noResult);
    return card;
}

void ResultPanel::showOutcome(const ResultOutcome &outcome, bool isEmpty)
{
    const bool hasOutcome = !outcome.title.isEmpty();
    m_outcome->setVisible(hasOutcome && !isEmpty);
    m_outcomePill->setText(outcome.title);
    m_outcomePill->setType(outcome.isOutdated ? StatusPill::Info : StatusPill::Success);
    m_outcomeText->setText(outcome.text);
    m_noResult->setIcon(hasOutcome ? IconWidget::History : IconWidget::Search);
    if (hasOutcome)
        m_noResult->setTexts(outcome.title, outcome.text);
    else
        m_noResult->setTexts(
            tr("未扫描到可清理的重复文件"),
            tr("当前没有可清理的重复文件。你可以重新扫描，或点击上方“清理记录”查看历史记录。"));
    m_noResult->setActionText(outcome.isOutdated ? tr("重新扫描") : QString());
}

void ResultPanel::setResults(CleanResults *results, bool keepPlace)
{
    const bool isEmpty = results->groups.isEmpty();
    m_dirs->setText(results->scanDirs.join(QStringLiteral("；")));
    // Nothing left and something to find again would contradict each other.
    const bool isOutdated = isEmpty && results->outcome.isOutdated;
    ui::common::setUsable(m_cleanAll, isEmpty ? tr("当前没有可清理的重复文件组。") : QString());
    m_summary->setText(isOutdated ? tr("需要重新扫描") : summaryLine(results->summary));
    showOutcome(results->outcome, isEmpty);
    m_note->setVisible(!isEmpty);
    m_list->setResults(results, keepPlace);
    m_stack->setCurrentIndex(isEmpty ? 1 : 0);
}

} // namespace wechatclean
