#include "tour.h"

#include "support/diskimages.h"

#include <QApplication>
#include <QCryptographicHash>
#include <QDialog>
#include <QDir>
#include <QElapsedTimer>
#include <QLabel>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <QTimer>

Tour::Tour(const TourOptions &options)
    : m_options(options)
{
    QDir().mkpath(home());
    QDir().mkpath(m_options.pictureDir);
}

Tour::~Tour() = default;

bool Tour::startService(const QString &program, const QStringList &arguments, QString *error)
{
    m_service = std::make_unique<QProcess>();
    m_service->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_service->start(program, arguments);
    if (m_service->waitForStarted())
        return true;
    *error = m_service->errorString();
    return false;
}

void Tour::endService()
{
    if (!m_service)
        return;
    m_service->terminate();
    if (!m_service->waitForFinished(5000))
        m_service->kill();
    m_service->waitForFinished();
    m_service.reset();
}

void Tour::closeWindow()
{
    delete m_window;
    m_window = nullptr;
}

void Tour::showWindow(QWidget *window)
{
    closeWindow();
    m_window = window;
    fit(m_window);
    m_window->show();
}

void Tour::fit(QWidget *window) const
{
    window->resize(m_options.windowSize);
    window->move(0, 0);
    window->raise();
}

QString Tour::home() const
{
    return m_root.filePath(QStringLiteral("home"));
}

bool Tour::click(const char *objectName, QString *error) const
{
    auto *widget = find<QWidget>(objectName, error);
    if (!widget)
        return false;
    if (!widget->isVisible() || !widget->isEnabled()) {
        *error = QStringLiteral("%1 cannot be clicked now").arg(QLatin1String(objectName));
        return false;
    }
    QTest::mouseClick(widget, Qt::LeftButton);
    return true;
}

bool Tour::waitFor(const std::function<bool()> &done, int timeoutMs, const QString &what,
                   QString *error) const
{
    if (QTest::qWaitFor(done, timeoutMs))
        return true;
    *error = QStringLiteral("waited %1 s in vain for %2").arg(timeoutMs / 1000.0).arg(what);
    return false;
}

bool Tour::picture(const QString &name, QString *error) const
{
    return pictureOf(m_window, name, error);
}

namespace {

QImage screenOf(const QWidget *window)
{
    const QRect area = window->frameGeometry();
    return QGuiApplication::primaryScreen()
        ->grabWindow(0, area.x(), area.y(), area.width(), area.height())
        .toImage();
}

/// What the screen shows of the window once it has come to rest: an animation or a repaint may be
/// under way. What moves without end, such as a busy bar, is taken as it is in the end.
QImage restingScreenOf(const QWidget *window)
{
    constexpr int kLookMs = 70;
    constexpr int kEqualLooks = 5;
    constexpr int kMostLooks = 12;
    QImage last = screenOf(window);
    for (int look = 0, equal = 0; look < kMostLooks && equal < kEqualLooks; ++look) {
        QTest::qWait(kLookMs); // between two looks
        const QImage now = screenOf(window);
        equal = now == last ? equal + 1 : 0;
        last = now;
    }
    return last;
}

} // namespace

bool Tour::pictureOf(QWidget *window, const QString &name, QString *error) const
{
    const QImage shot = restingScreenOf(window);
    const QString path =
        QDir(m_options.pictureDir)
            .filePath(
                QStringLiteral("%1-%2.png").arg(core::AppModeDetector::toString(mode()), name));
    if (shot.isNull() || !shot.save(path)) {
        *error = QStringLiteral("cannot save the picture %1").arg(path);
        return false;
    }
    return true;
}

bool Tour::withDialog(const std::function<void()> &act,
                      const std::function<bool(QDialog *, QString *)> &inDialog,
                      QString *error) const
{
    bool ok = false;
    bool seen = false;
    QTimer poll;
    QElapsedTimer sinceStart;
    sinceStart.start();
    const QWidget *earlier = QApplication::activeModalWidget();
    QObject::connect(&poll, &QTimer::timeout, &poll, [&] {
        auto *dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        if (!dialog || !dialog->isVisible() || dialog == earlier) {
            if (sinceStart.elapsed() > 10000)
                poll.stop();
            return;
        }
        poll.stop();
        seen = true;
        ok = inDialog(dialog, error);
        if (dialog->isVisible())
            dialog->reject();
    });
    poll.start(50);
    act();
    if (!QTest::qWaitFor([&] { return seen || !poll.isActive(); }, 15000) || !seen) {
        *error = QStringLiteral("no dialog came up");
        return false;
    }
    return ok;
}

bool Tour::answerNotice(const std::function<void()> &act, const QString &title,
                        const QString &pictureName, QString *message, QString *error) const
{
    const auto confirm = [&](QDialog *dialog, QString *why) {
        auto *heading = dialog->findChild<QLabel *>(QStringLiteral("NoticeTitle"));
        auto *text = dialog->findChild<QLabel *>(QStringLiteral("NoticeMessage"));
        auto *button = dialog->findChild<QPushButton *>(QStringLiteral("NoticeOkBtn"));
        if (!heading || !text || !button || heading->text() != title) {
            *why = QStringLiteral("another dialog than “%1”: %2")
                       .arg(title, heading ? heading->text() : dialog->windowTitle());
            return false;
        }
        *message = text->text();
        if (!pictureName.isEmpty() && !picture(pictureName, why))
            return false;
        QTest::mouseClick(button, Qt::LeftButton);
        return true;
    };
    return withDialog(act, confirm, error);
}

QByteArray sha256(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

QByteArray sha256OfFile(const QString &path)
{
    return sha256(diskimages::readAll(path));
}
