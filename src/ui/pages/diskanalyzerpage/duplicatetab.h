#pragma once

#include "ui/common/emptystate.h"
#include "ui/pages/diskanalyzerpage/duplicategroups.h"

#include <QWidget>

class QLabel;
class QPushButton;
class QStackedWidget;

namespace diskanalyzer {

class DuplicateListView;
class DuplicateModel;

/// "重复文件". Object names: DuplicateList, DuplicateFooter, DuplicateCleanButton.
class DuplicateTab : public QWidget
{
    Q_OBJECT

public:
    explicit DuplicateTab(QWidget *parent = nullptr);

    /// Shows this in place of groups.
    void clear(ui::common::EmptyState::Tone tone, const QString &title, const QString &hint);
    /// `searched` is false if the scan looked for no duplicates.
    void setResult(const DuplicateResult &result, bool searched);
    void removePaths(const QSet<QString> &paths);
    int groupCount() const;
    /// While files are being deleted no more can be.
    void setDeleting(bool deleting);

signals:
    void cleanGroupRequested(const diskanalyzer::DuplicateGroup &group);
    void cleanAllRequested(const diskanalyzer::DuplicateResult &result);
    void openDirRequested(const QString &filePath);

private:
    QWidget *buildFooter();
    void showSummary();

    DuplicateModel *m_model;
    QStackedWidget *m_views; ///< The empty state, or the cards.
    ui::common::EmptyState *m_empty;
    DuplicateListView *m_list;
    QWidget *m_footerBar = nullptr;
    QLabel *m_footer = nullptr;
    QPushButton *m_clean = nullptr;
    bool m_deleting = false;
};

} // namespace diskanalyzer
