#pragma once

#include "share/sharerecords.h"

#include <QList>
#include <QWidget>

class QBoxLayout;
class QComboBox;
class QLabel;
class QPushButton;
class QStackedWidget;
class QTableView;

namespace ui {
namespace common {
class EmptyState;
}
} // namespace ui

namespace fileshare {

class AccessLogModel;

/// The access log of a share: filter, one page of rows, and the steps through the pages. It shows
/// what it is given. Object names: ShareLogFilter, ShareLogTable, ShareLogPageText,
/// ShareLogPrevButton, ShareLogNextButton, ShareLogEmpty.
class AccessLogPanel : public QWidget
{
    Q_OBJECT

public:
    explicit AccessLogPanel(QWidget *parent = nullptr);

    /// Action that is asked for; empty for all.
    QString filter() const;
    /// A selected entry that is still on the page stays selected.
    void showPage(const QList<AccessLogEntry> &entries, int page, int total);

signals:
    void previousRequested();
    void nextRequested();
    void filterChanged();

private:
    QBoxLayout *buildHeader();
    void buildTable();

    AccessLogModel *m_model;
    QComboBox *m_filter = nullptr;
    QLabel *m_pageText = nullptr;
    QPushButton *m_previous = nullptr;
    QPushButton *m_next = nullptr;
    QStackedWidget *m_views = nullptr;
    QTableView *m_table = nullptr;
    ui::common::EmptyState *m_empty = nullptr;
};

} // namespace fileshare
