#pragma once

#include "ui/pages/wechatcleanpage/cleanresults.h"

#include <QWidget>

class QLabel;
class QPushButton;
class QStackedWidget;

namespace ui {
namespace common {
class ElidedLabel;
class EmptyState;
class StatusPill;
} // namespace common
} // namespace ui

namespace wechatclean {

class ResultList;

/// The results of a scan: where it looked, what it found, and the cards of the groups. Object
/// names: WechatResultHead, WechatScanDirs, WechatAdjustDirsButton, WechatSummaryLine,
/// WechatMergeNote, WechatRescanButton, WechatCleanAllButton, WechatOutcome, WechatOutcomePill,
/// WechatOutcomeText, WechatResultStack, WechatNoResultCard.
class ResultPanel : public QWidget
{
    Q_OBJECT

public:
    explicit ResultPanel(QWidget *parent = nullptr);

    /// The results must outlive the panel; call again after any change of theirs.
    void setResults(CleanResults *results, bool keepPlace);

signals:
    void adjustRequested();
    void rescanRequested();
    void cleanAllRequested();
    void cleanRequested(QWidget *card);
    void openFolderRequested(const QString &path);

private:
    QWidget *buildHead();
    QWidget *buildOutcome(QWidget *parent);
    QWidget *buildNoResultCard();
    void showOutcome(const ResultOutcome &outcome, bool isEmpty);

    ui::common::ElidedLabel *m_dirs = nullptr;
    QLabel *m_summary = nullptr;
    QLabel *m_note = nullptr;
    QWidget *m_outcome = nullptr; ///< Above the groups that are left.
    ui::common::StatusPill *m_outcomePill = nullptr;
    QLabel *m_outcomeText = nullptr;
    ui::common::EmptyState *m_noResult = nullptr;
    QPushButton *m_cleanAll = nullptr;
    QStackedWidget *m_stack = nullptr;
    ResultList *m_list = nullptr;
};

} // namespace wechatclean
