#pragma once

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>

class QWidget;

namespace fileshare {

/// Lets one change of the shares run at a time. Such a change may wait in a nested event loop,
/// where the user could press the next button: meanwhile the widgets are disabled.
class OperationGate : public QObject
{
    Q_OBJECT

public:
    /// The widgets are enabled between operations. The gate goes with `owner`.
    OperationGate(const QList<QWidget *> &locked, QObject *owner);

    bool isBusy() const { return m_isBusy; }
    /// Runs `operation`, unless one is under way. False if it did not run, or if the gate, and so
    /// its owner, is gone by its end.
    bool run(const QString &what, const std::function<void()> &operation);
    /// The same once for each id, which follow `what` as "3 / 12".
    bool runForEach(const QString &what, const QStringList &ids,
                    const std::function<void(const QString &id)> &operation);

signals:
    /// What is being done; empty at the end.
    void changed(const QString &what);

private:
    void lock(bool locked);

    QList<QPointer<QWidget>> m_locked;
    QPointer<QWidget> m_focus; ///< Who had the focus, which a disabled widget loses.
    bool m_isBusy = false;
};

} // namespace fileshare
