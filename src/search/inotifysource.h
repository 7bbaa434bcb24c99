#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

#include <vector>

/// The inotify descriptor with its watches and the events that were read from it. Belongs to one
/// thread. Every wait ends at once when the wake descriptor becomes readable.
///
/// Events are taken from the kernel at every opportunity and kept here in order: its queue is
/// short, and a lost event costs a whole rebuild.
class InotifySource
{
public:
    /// `wakeFd` stays the caller's; -1 for none.
    explicit InotifySource(int wakeFd)
        : m_wakeFd(wakeFd)
    {}
    ~InotifySource();

    InotifySource(const InotifySource &) = delete;
    InotifySource &operator=(const InotifySource &) = delete;

    bool open();
    /// At most so many watches; 0 leaves it to the system's limit.
    void setMostWatches(int count) { m_mostWatches = count; }

    /// Watches a directory, also again after it was replaced by another one of the same name. False
    /// if it is there and cannot be watched, as at the limit of watches.
    bool addWatch(const QString &dir);
    /// Empty for a descriptor that is not, or no longer, watched.
    QString watchedDirectory(int descriptor) const { return m_watchPaths.value(descriptor); }
    /// Forgets a watch that the kernel has ended.
    void forgetWatch(int descriptor);
    /// Ends the watches of a directory and all below it: they follow a moved directory and would
    /// go on reporting under its old path.
    void removeWatchesInside(const QString &dir);
    bool isWatched(const QString &dir) const { return m_descriptors.contains(dir); }

    /// Moves what the kernel holds to this object. Never waits.
    void drain();
    /// Everything drained so far, as a sequence of whole `inotify_event`s.
    QByteArray takeEvents();
    /// True if file systems have come or gone since the last call.
    bool takeMountChange();
    /// The descriptor can no longer be read.
    bool failed() const { return m_failed; }

    /// Waits at most `idleMs` for an event, and once there is one `gatherMs` more, so that what
    /// belongs together is read together.
    void waitForEvents(int idleMs, int gatherMs);
    /// Waits for `ms` and drains meanwhile.
    void sleep(int ms);

private:
    enum class Wake { stop, event, timeout };
    Wake poll(int ms, bool events);

    int m_fd = -1;
    int m_mountsFd = -1;
    int m_mostWatches = 0;
    bool m_mountsChanged = false;
    int m_wakeFd;
    bool m_failed = false;
    std::vector<char> m_buffer = std::vector<char>(65536);
    QByteArray m_events;
    QHash<int, QString> m_watchPaths;
    QHash<QString, int> m_descriptors;
};
