#pragma once

#include <QCoreApplication>
#include <QEvent>
#include <QMainWindow>
#include <QTimer>

#include <cstdio>

/// Installed on the application: once a main window has painted itself, writes a line to standard
/// output and quits.
class FirstPaint : public QObject
{
public:
    using QObject::QObject;

    static const char *line() { return "shown"; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (!m_seen && event->type() == QEvent::Paint && qobject_cast<QMainWindow *>(watched)) {
            m_seen = true;
            // After the paint event and what it leads to.
            QTimer::singleShot(0, qApp, [] {
                std::puts(line());
                std::fflush(stdout);
                QCoreApplication::quit();
            });
        }
        return false;
    }

private:
    bool m_seen = false;
};
