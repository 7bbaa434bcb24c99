#pragma once

#include "vaultd/keep/keeper.h"

#include <QByteArray>
#include <QHash>
#include <QVector>

#include <atomic>
#include <functional>
#include <mutex>
#include <sys/stat.h>

namespace guard_test {

/// What the keeper holds.
struct KeptFile
{
    QByteArray path; ///< Where it was before it went to the trash.
    QByteArray content;
    ino_t inode = 0;
    uid_t peer = 0;
    bool isReplaced = false;
    bool isSettled = false;
    bool isLeft = false; ///< By a former process.
};

/// A vault in its simplest form: hard links in one folder, each with a symbolic link that says
/// where the file was. Both are on disk, so that a killed process leaves what it had.
class LinkKeeper : public services::vaultd::Keeper
{
public:
    explicit LinkKeeper(const QByteArray &dir);

    bool keep(const services::vaultd::Deletion &deletion, QString *id, QString *error) override;
    void settle(const QString &id, bool isDeleted) override;
    bool holds(const struct stat &file, const QByteArray &path) override;

    /// As they are now; those of a former process only if their original is gone.
    QVector<KeptFile> files() const;
    QVector<KeptFile> filesAt(const QByteArray &path) const;
    int count() const { return files().size(); }
    /// Deletions that were kept and then did not happen.
    int forgottenCount() const { return m_forgotten; }
    /// From now on nothing is taken.
    void refuse(bool isRefusing) { m_isRefusing = isRefusing; }
    /// Takes this long for each file.
    void setDelayMs(int delay) { m_delayMs = delay; }
    /// Called before a file is taken, on the thread that takes it.
    std::function<void()> onKeep;

private:
    QByteArray file(const QByteArray &id, const char *suffix) const;
    void load();

    QByteArray m_dir;
    mutable std::mutex m_mutex;
    QHash<QByteArray, KeptFile> m_files;
    std::atomic<int> m_forgotten{0};
    std::atomic<bool> m_isRefusing{false};
    std::atomic<int> m_delayMs{0};
};

} // namespace guard_test
