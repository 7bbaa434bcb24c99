#pragma once

#include "vaultd/shadow/folderevents.h"
#include "vaultd/shadow/shadowbox.h"
#include "vaultd/vaultconfig.h"

#include <atomic>
#include <thread>

namespace services::vaultd {

/// Keeps what is deleted without the hook being told: by static programs, sandboxes, raw system
/// calls. Each protected file on the vault's file system has a shadow; when its name is deleted and
/// the hook has not reported it within a second, the shadow becomes a record.
///
/// Two threads of its own: one follows the kernel's events, one walks the folders with idle
/// priority, at first and whenever events were lost.
class ShadowNet
{
public:
    ShadowNet(const VaultLayout &layout, uid_t owner, VaultKeeper &keeper);
    ~ShadowNet();
    ShadowNet(const ShadowNet &) = delete;
    ShadowNet &operator=(const ShadowNet &) = delete;

    /// Begins anew with this configuration, or ends what runs if it is off. False, with the reason,
    /// if the file system or the configuration does not allow it. The caller's thread waits for
    /// threads that run.
    [[nodiscard]] bool restart(const VaultConfig &config, bool isEnabled, QString *error);
    /// Ends it and waits for its threads; what was deleted within the last second is not recorded.
    void stop();
    bool isRunning() const { return m_events.joinable(); }
    /// Whether the walk has been through all folders since the last restart or loss of events.
    bool isComplete() const { return m_isComplete; }
    /// Called, from a thread of the net, after something became a record.
    void setWake(const std::function<void()> &wake) { m_wake = wake; }

private:
    void follow();
    void walkAll();
    void walk(const QByteArray &path);
    void lookInto(const QByteArray &path, QVector<QByteArray> *deeper);
    void handle(const FolderEvent &event);
    void handleFolder(const FolderEvent &event, const QByteArray &path);
    void settleUnseen();
    bool isProtected(const QByteArray &name) const;
    bool isLeftOut(const QByteArray &path) const;

    VaultLayout m_layout;
    uid_t m_owner;
    VaultKeeper &m_keeper;
    VaultConfig m_config;
    QVector<QByteArray> m_extensions; ///< With the dot, lower case.
    std::function<void()> m_wake;
    FolderEvents m_folderEvents;
    core::Descriptor m_wakeUp{-1}; ///< An event that ends a wait.
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_mustWalk{false};
    std::atomic<bool> m_isComplete{false};
    dev_t m_device = 0;
    std::mutex m_mutex; ///< Of the box and the folders.
    std::unique_ptr<ShadowBox> m_box;
    QHash<QByteArray, QByteArray> m_folders; ///< Path by key, of those that are protected.
    std::thread m_events;
    std::thread m_walker;
};

} // namespace services::vaultd
