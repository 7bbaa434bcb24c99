#pragma once

#include "ui/pages/filesharepage/sharerules.h"

#include <QVector>
#include <QWidget>

class QBoxLayout;
class QLabel;
class QPushButton;
class QStackedWidget;

namespace ui {
namespace common {
class EmptyState;
}
} // namespace ui

namespace fileshare {

class SessionTable;

/// The share records and what can be done with all of them. Object names: ShareSessionTable,
/// ShareRecordsEmpty, ShareRecordsStatus, ShareNetworkHint, ShareStopAllButton,
/// ShareStartAllButton, ShareRemoveAllButton.
class RecordsPanel : public QWidget
{
    Q_OBJECT

public:
    explicit RecordsPanel(QWidget *parent = nullptr);

    SessionTable *table() const { return m_table; }
    void showSessions(const QVector<SessionRow> &rows);
    /// Says that there is nobody to ask for records.
    void showUnavailable();
    /// Whether other devices can reach this one; only said while shares run.
    void setReachable(bool reachable);

signals:
    void stopAllRequested();
    void startAllRequested();
    void removeAllRequested();

private:
    QBoxLayout *buildTools();
    void buildViews();

    QLabel *m_status = nullptr;
    QLabel *m_networkHint = nullptr;
    QPushButton *m_stopAll = nullptr;
    QPushButton *m_startAll = nullptr;
    QPushButton *m_removeAll = nullptr;
    QStackedWidget *m_views = nullptr;
    SessionTable *m_table = nullptr;
    ui::common::EmptyState *m_empty = nullptr;
};

} // namespace fileshare
