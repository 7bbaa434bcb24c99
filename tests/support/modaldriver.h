#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <functional>

class QWidget;

namespace support {

/// Works the modal dialog that a blocking call is about to open: create it, make the call, then
/// check handled(). A dialog that the step leaves open is closed after a while, so that a failing
/// test ends instead of hanging.
class ModalDriver : public QObject
{
    Q_OBJECT

public:
    using Step = std::function<void(QWidget *dialog)>;

    /// Runs `step` once, as soon as a modal dialog is shown.
    explicit ModalDriver(Step step);

    /// True if a dialog came and the step closed it.
    bool handled() const { return m_shown && !m_forced; }

private:
    void poll();

    Step m_step;
    QTimer m_timer;
    QElapsedTimer m_sinceStep;
    bool m_shown = false;
    bool m_forced = false;
};

} // namespace support
