#pragma once

#include "recoverypagesfixture.h"
#include "share/filesharecontroller.h"
#include "share/filesharedb.h"
#include "support/dialogsteps.h"
#include "support/fakeservice.h"
#include "support/freeport.h"
#include "support/temptree.h"

#include <QPushButton>
#include <QTimer>

#include <memory>

namespace testsupport {

/// The look of normal mode.
inline void useLightTheme()
{
    using namespace ui::common;
    ThemeColors::init(ThemeType::light, 1.0);
    qApp->setPalette(buildPalette(ThemeType::light));
    qApp->setStyleSheet(buildAppStyleSheet(ThemeType::light));
}

/// A controller over a database and a port of its own. The vault service is silent until
/// `service.start()`.
struct ShareBench
{
    TempTree tree;
    FakeService service;
    QString dbPath = tree.path("fileshare.db");
    std::unique_ptr<FileShareController> controller;

    /// `records` stopped shares are there before, the first one the newest.
    explicit ShareBench(int records = 0)
    {
        FileShareDb db(dbPath);
        bool ok = db.open() &&
                  db.saveDefault(QStringLiteral("port"), QString::number(freePort())) &&
                  db.beginTransaction();
        for (int i = 0; i < records; ++i) {
            ShareSession session;
            session.id = QStringLiteral("id%1").arg(i);
            session.status = QStringLiteral("stopped");
            session.createdAt = 1000000 - i;
            ok = ok && db.createSession(session, QString());
        }
        if (!ok || !db.commitTransaction())
            qFatal("the share database cannot be made");
        db.close();
        controller = std::make_unique<FileShareController>(nullptr, dbPath, service.name());
    }

    QString share(const char *name = "一.txt", const QString &password = QString(),
                  int durationMin = 0, const char *mode = "download")
    {
        return controller->createShare({tree.file(name)}, password, durationMin, 5,
                                       QLatin1String(mode));
    }
    QString status(const QString &id) const { return controller->sessionInfo(id).status; }
    void visit(const QString &id, const char *action, const QString &file = QString())
    {
        controller->onAccessLoggedFromWorker(id, QStringLiteral("10.0.0.9"), QLatin1String(action),
                                             file);
    }
};

/// What is asked of the vault service with every change of the shares.
const QString kFirewallMethod = QStringLiteral("vault.syncShareFirewall");

/// Runs something while the controller waits for the service, which holds its answer back.
class WhenHeld
{
public:
    WhenHeld(FakeService *service, const std::function<void()> &run)
    {
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this, service, run] {
            if (service->heldCount(kFirewallMethod) == 0)
                return;
            m_timer.stop();
            run();
        });
        m_timer.start(5);
    }

private:
    QTimer m_timer;
};

/// Works a dialog, then the notice after it.
inline support::ModalDriver::Step thenPresses(const support::ModalDriver::Step &first,
                                              std::unique_ptr<support::ModalDriver> *second,
                                              const char *button, QStringList *texts)
{
    return [first, second, button, texts](QWidget *dialog) {
        first(dialog);
        *second = std::make_unique<support::ModalDriver>(support::presses(button, texts));
    };
}

} // namespace testsupport
