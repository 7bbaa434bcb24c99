#pragma once

#include "common/servicehost.h"
#include "recoveryd/jobthread.h"
#include "recoveryd/scan/scanservice.h"
#include "recoveryd/session/resultlog.h"
#include "recoveryd/session/sessionstore.h"

#include <functional>

namespace services {
namespace recoveryd {

/// The methods session.*. Lists of files are read and converted on a thread of their own.
class SessionService
{
public:
    /// `isInUse` tells whether a recovery still reads a session's files. All references must
    /// outlive the host's handlers.
    SessionService(ServiceHost &host, const ScanService &scans, SessionStore &store,
                   std::function<bool(const QString &sessionId)> isInUse);

private:
    struct Page
    {
        QString sessionId;
        QString resultsPath;
        int offset = 0;
        int limit = -1; ///< -1: all.
    };

    Reply list(const QJsonObject &params) const;
    Reply detail(const QString &sessionId) const;
    void files(const QJsonObject &params, const ServiceHost::Respond &respond);
    Reply remove(const QString &sessionId);
    /// On the job thread.
    Reply readPage(const Page &page);

    const ScanService &m_scans;
    SessionStore &m_store;
    std::function<bool(const QString &)> m_isInUse;
    QString m_openSession;             ///< Of the job thread: whose log is open.
    std::unique_ptr<ResultLog> m_open; ///< Kept between the pages of a list.
    JobThread m_jobs;
};

} // namespace recoveryd
} // namespace services
