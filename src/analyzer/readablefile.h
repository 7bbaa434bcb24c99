#pragma once

#include "core/descriptor.h"
#include "core/fileidentity.h"

#include <QString>

/// A regular file, open for reading. A pipe or a device that took a file's place is neither waited
/// for nor read.
class ReadableFile
{
public:
    /// `advice` as of posix_fadvise(2), for the whole file.
    ReadableFile(const QString &path, int advice);

    /// Bytes to read at a time from a file of `size` bytes: large steps, and more than a small file
    /// has, so that one read meets its end.
    static qint64 blockSizeFor(qint64 size);

    bool isReadable() const { return m_identity.isValid(); }
    qint64 size() const { return m_identity.size; }
    /// After the reading: whether what was read is the content of the expected file. Null expects
    /// nothing.
    bool wasUnchanged(const core::FileIdentity *expected) const;
    /// Fills the buffer as far as the file goes. -1 on an error.
    qint64 read(char *buffer, qint64 wanted, qint64 offset) const;

private:
    core::FileIdentity currentIdentity() const;

    core::Descriptor m_file;
    core::FileIdentity m_identity;
};
