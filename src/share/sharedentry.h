#pragma once

#include "core/descriptor.h"

#include <QByteArray>
#include <QString>

#include <sys/stat.h>

namespace share {

/// A file or directory of a share, held by a descriptor from the moment it is found to belong to
/// the share until it is listed, read or written: a name that another program exchanges for a link
/// meanwhile changes nothing. Any thread.
class SharedEntry
{
public:
    /// How a path is walked: by the kernel, where it can refuse to leave the share (openat2(2)), or
    /// by this program.
    enum class Walk { Kernel, PartByPart };

    SharedEntry() = default;
    SharedEntry(SharedEntry &&other) noexcept;
    SharedEntry &operator=(SharedEntry &&other) noexcept;

    /// What the user has shared. A link is its target. Not open if there is no such path.
    static SharedEntry root(const QString &localPath);
    /// What the clean path `relative` names below this directory; an empty one or "." is the
    /// directory itself. Links are followed as long as they lead to something below this directory.
    /// Not open if the path leads out or to nothing.
    SharedEntry below(const QString &relative, Walk walk = Walk::Kernel) const;

    bool isOpen() const { return m_descriptor.isOpen(); }
    bool isDirectory() const { return isOpen() && S_ISDIR(m_status.st_mode); }
    bool isFile() const { return isOpen() && S_ISREG(m_status.st_mode); }
    qint64 size() const { return m_status.st_size; } ///< Bytes.

    /// For the *at() calls: it gives no access to the content (O_PATH). -1 if not open.
    int descriptor() const { return m_descriptor.get(); }
    /// A descriptor for reading the content of a file or the names in a directory, the caller's to
    /// close. -1 if the rights are missing, and for anything else: pipes and devices are not
    /// opened.
    int openForReading() const;

private:
    explicit SharedEntry(int descriptor);

    core::Descriptor m_descriptor{-1};
    struct stat m_status = {};
};

} // namespace share
