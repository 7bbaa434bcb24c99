#pragma once

#include "core/appmode.h"

#include <QMap>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QWidget>

#include <functional>
#include <memory>

class QDialog;
class QProcess;

struct TourOptions
{
    core::AppMode mode = core::AppMode::normal;
    QString pictureDir;
    QSize windowSize{1440, 900};
    double fontScale = 1.15;
};

/// What one walk through the program needs: a home of its own, the window under way, pictures, and
/// waiting. The tour looks at the program from outside: it finds widgets by object name, clicks and
/// types, and reads what the page shows.
class Tour
{
public:
    explicit Tour(const TourOptions &options);
    ~Tour();

    core::AppMode mode() const { return m_options.mode; }
    /// Folder of the tour, which goes with it.
    QString root() const { return m_root.path(); }
    QString home() const;
    /// Stands in for the mounted system of a damaged machine.
    QString targetRoot() const { return m_root.filePath(QStringLiteral("target")); }
    /// What the sample documents say, by file name; filled by the step that makes them.
    QMap<QString, QString> expectedTexts;
    /// SHA-256 in hex of the files that are deleted from the disk image, by file name.
    QMap<QString, QByteArray> deletedHashes;
    /// The same of the files that go into a vault.
    QMap<QString, QByteArray> protectedHashes;

    /// Starts a program that runs until endService().
    bool startService(const QString &program, const QStringList &arguments, QString *error);
    /// Call before the application object goes.
    void endService();

    QWidget *window() const { return m_window; }
    /// Takes ownership, gives the window its size and shows it in place of an earlier one.
    void showWindow(QWidget *window);
    /// Call before the application object goes.
    void closeWindow();

    /// The widget of that name below the window; null and an error text when it is not there.
    template <typename T>
    T *find(const char *objectName, QString *error) const
    {
        T *widget = m_window->findChild<T *>(QLatin1String(objectName));
        if (!widget)
            *error = QStringLiteral("no widget named %1").arg(QLatin1String(objectName));
        return widget;
    }

    /// Clicks in the middle of a widget.
    bool click(const char *objectName, QString *error) const;
    /// Runs the event loop until `done` or until the time is over; false then.
    bool waitFor(const std::function<bool()> &done, int timeoutMs, const QString &what,
                 QString *error) const;
    /// Saves what the screen shows of the window as <mode>-<name>.png.
    bool picture(const QString &name, QString *error) const;
    bool pictureOf(QWidget *window, const QString &name, QString *error) const;
    /// Gives a window the size of the tour and puts it in front.
    void fit(QWidget *window) const;
    /// Calls `act`, which opens a modal dialog, at once or soon, and `inDialog` once that dialog
    /// stands; the dialog is closed by `inDialog` or, failing that, rejected. A modal dialog that
    /// is open already is none of its business.
    bool withDialog(const std::function<void()> &act,
                    const std::function<bool(QDialog *, QString *)> &inDialog,
                    QString *error) const;
    /// Presses the main button of the notice that `act` brings up, which must have that title, and
    /// takes note of what it says. Without a name, no picture.
    bool answerNotice(const std::function<void()> &act, const QString &title,
                      const QString &pictureName, QString *message, QString *error) const;

private:
    TourOptions m_options;
    QTemporaryDir m_root;
    QWidget *m_window = nullptr;
    std::unique_ptr<QProcess> m_service;
};

/// In hex.
QByteArray sha256(const QByteArray &bytes);
/// The same of what a file holds; that of nothing where it cannot be read.
QByteArray sha256OfFile(const QString &path);

/// One step: what it does, and doing it. `found` receives what the step saw, for the report.
struct TourStep
{
    const char *title;
    bool (*run)(Tour &tour, QString *found, QString *error);
};

QList<TourStep> normalModeSteps();
QList<TourStep> livecdModeSteps();
