#pragma once

#include "core/appmode.h"
#include "ui/common/utils/protectedfiles.h"
#include "vault/vaultlocations.h"

#include <QJsonArray>
#include <QString>

/// What the vault browser says and decides, without a widget.
namespace vaultbrowser {

/// "/dev/sda2 -> /home/li -> li": device, the vault's directory, user; parts that are missing are
/// left out.
QString locationText(const vault::VaultLocation &location);

/// Why there is no vault to choose.
QString nothingFoundText(core::AppMode mode, bool targetMounted);

/// The files whose name or original path holds the text, whatever the case; all for an empty one.
QVector<protectedfiles::ProtectedFile> matching(const QVector<protectedfiles::ProtectedFile> &files,
                                                const QString &text);

/// Follows one restore at a time through what the service tells. Other restores that run there are
/// none of its business.
class RestoreWatch
{
public:
    bool isBusy() const { return m_state != State::Idle; }
    bool isStarting() const { return m_state == State::Starting; }
    int total() const { return m_total; }
    int done() const { return m_done; }

    void begin(int total);
    /// These three return false, and change nothing, unless they tell of the restore that is under
    /// way.
    bool start(const QString &taskId);
    bool countFile(const QString &taskId, const QString &status);
    bool finish(const QString &taskId);
    /// The restore did not start, or nothing will be heard of it any more.
    void abandon() { m_state = State::Idle; }

    QString progressText() const;

private:
    enum class State { Idle, Starting, Running };

    bool isMine(const QString &taskId) const;

    State m_state = State::Idle;
    QString m_taskId;
    int m_total = 0;
    int m_done = 0;
    int m_succeeded = 0;
    int m_failed = 0;
};

} // namespace vaultbrowser
