#pragma once

#include "common/mailbox.h"
#include "recoveryd/vault/foundvault.h"
#include "recoveryd/workcontrol.h"

#include <QObject>

class QCryptographicHash;

namespace services {

class OutputFile;

namespace recoveryd {

struct VaultRestoreItem
{
    QString fileId;
    QString originalPath;
    QString name;         ///< As it is to be called; a plain name.
    qint64 size = -1;     ///< Bytes as the record has it; -1 if it does not tell.
    bool isKnown = false; ///< The vault has a record of it.
};

struct VaultRestorePlan
{
    enum class Conflict { Rename, Skip };

    QString taskId;
    std::shared_ptr<const FoundVault> vault;
    QVector<VaultRestoreItem> items;
    QString targetDir; ///< Exists.
    Conflict conflict = Conflict::Rename;
};

/// What became of one file.
struct VaultRestoreResult
{
    QString fileId;
    QString originalPath;
    QString status; ///< "succeeded", "failed" or "skipped".
    QString error;
    qint64 writtenBytes = 0;
};

/// Who is told about a restore; on the thread of the mailbox that the task is given.
class VaultRestoreListener
{
public:
    virtual ~VaultRestoreListener() = default;

    virtual void onVaultFileRestored(const QString &taskId, const VaultRestoreResult &result) = 0;
    /// The last call.
    virtual void onVaultRestoreFinished(const QString &taskId) = 0;
};

/// Copies files out of a vault, one after another, on a worker thread: run it by a queued call; its
/// control stops it, between files or in one, which then leaves nothing. Inbox and listener must
/// outlive it. A file gets its name only once it is written whole, read back and found to be the
/// same; files of that name stay as they are.
class VaultRestoreTask : public QObject
{
    Q_OBJECT

public:
    VaultRestoreTask(VaultRestorePlan plan, std::shared_ptr<WorkControl> control, Mailbox &inbox,
                     VaultRestoreListener &listener);

public slots:
    void run();

private:
    VaultRestoreResult restore(const VaultRestoreItem &item);
    [[nodiscard]] bool copy(const VaultContent &content, OutputFile &output, QString *error) const;
    [[nodiscard]] bool copyRange(const VaultContent &content, const Range &range,
                                 OutputFile &output, QCryptographicHash &hash,
                                 QString *error) const;

    VaultRestorePlan m_plan;
    std::shared_ptr<WorkControl> m_control;
    Mailbox &m_inbox;
    VaultRestoreListener &m_listener;
    int m_number = 0; ///< Of the current file; part of its temporary name.
};

} // namespace recoveryd
} // namespace services
