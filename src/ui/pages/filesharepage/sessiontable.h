#pragma once

#include "ui/pages/filesharepage/sharerules.h"

#include <QTableView>
#include <QVector>

namespace fileshare {

class SessionTableModel;

/// The share records, newest first, each with its buttons. The keyboard reaches the buttons of the
/// current row: left and right choose one, Enter and Space press it, Delete deletes.
class SessionTable : public QTableView
{
    Q_OBJECT

public:
    explicit SessionTable(QWidget *parent = nullptr);

    /// Selection, current row and scroll position stay with the records they are at.
    void showSessions(const QVector<SessionRow> &rows);
    void updateSession(const SessionRow &row);
    QString idAt(int row) const;
    bool isActive(const QString &id) const;
    /// The button of the current row that the keyboard is at.
    int focusedAction() const { return m_focusedAction; }

signals:
    void actionRequested(const QString &id, int action); ///< A SessionAction.

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void layOutColumns();
    void focusAction(int action);
    void request(int row, int action);

    SessionTableModel *m_sessions;
    int m_focusedAction = DetailAction;
};

} // namespace fileshare
