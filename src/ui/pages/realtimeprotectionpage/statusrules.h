#pragma once

#include <QColor>
#include <QJsonObject>
#include <QString>

/// What the protection page says about the state of the vault service.
namespace realtimeprotection {

/// A status object of the service; what it leaves out is false, 0 or empty.
struct ServiceStatus
{
    bool isRunning = false;
    bool isEnabled = false;
    bool isHookActive = false;      ///< The hook is registered with the system.
    bool isHookFilePresent = false; ///< The hook's library exists.
    bool needsReboot = false;
    qint64 fileCount = 0;
    qint64 usedBytes = 0;
    QString deployMode;
    QString secondNetReason; ///< Why deletions past the hook are not kept; empty while they are.

    static ServiceStatus fromJson(const QJsonObject &status);
};

/// Meaning of the status dot's colour.
enum class Health { Off, Good, Waiting, Broken };

Health healthOf(const ServiceStatus &status);

/// All texts that follow from a status.
struct StatusView
{
    Health health = Health::Off;
    QString text;
    QString toggleText;
    QString service;
    QString fileCount;
    QString usedSpace;
    QString deployMode;
};

StatusView viewOf(const ServiceStatus &status);

/// At nine tenths of the limit, or above; never without a limit. Bytes.
bool isSpaceShort(qint64 usedBytes, qint64 maxBytes);
/// What to say then.
QString spaceWarningText(qint64 usedBytes, qint64 maxBytes);

QColor dotColor(Health health);

/// Sees to it that a broken protection is warned of once a spell. A short stop of the service does
/// not end the spell; any other state does.
class BreakageWatch
{
public:
    /// The warning that this status asks for; empty if none.
    QString warningFor(const ServiceStatus &status);
    /// The user has been told of the spell by other words.
    void acknowledge() { m_isWarned = true; }

private:
    bool m_isWarned = false;
};

} // namespace realtimeprotection
