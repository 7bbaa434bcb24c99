#include "support/modaldriver.h"

#include <QApplication>
#include <QWidget>

namespace support {

namespace {

constexpr int kPollMs = 10;
constexpr int kPatienceMs = 3000;

} // namespace

ModalDriver::ModalDriver(Step step)
    : m_step(std::move(step))
{
    connect(&m_timer, &QTimer::timeout, this, &ModalDriver::poll);
    m_timer.start(kPollMs);
}

void ModalDriver::poll()
{
    QWidget *dialog = QApplication::activeModalWidget();
    if (!dialog || !dialog->isVisible())
        return;
    if (!m_shown) {
        m_shown = true;
        m_sinceStep.start();
        m_step(dialog);
    } else if (m_sinceStep.elapsed() > kPatienceMs) {
        m_forced = true;
        dialog->close();
    }
}

} // namespace support
