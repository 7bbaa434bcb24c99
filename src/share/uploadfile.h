#pragma once

#include "core/descriptor.h"

#include <QByteArray>

#include <sys/types.h>

namespace share {

/// A file that is being received into a directory. It has no name until it is complete, or, where
/// the file system knows no files without a name, a hidden one that is removed if it never is.
class UploadFile
{
public:
    /// What stands for the file until it is complete.
    enum class Storage { Unnamed, HiddenName };

    /// `directory` stays open as long as this object lives. Unnamed storage becomes a hidden name
    /// where the file system does not know it.
    explicit UploadFile(int directory, Storage storage = Storage::Unnamed);
    ~UploadFile();
    UploadFile(const UploadFile &) = delete;
    UploadFile &operator=(const UploadFile &) = delete;

    /// `mode` is subject to the umask.
    [[nodiscard]] bool open(mode_t mode);
    [[nodiscard]] bool write(const char *data, qint64 size);
    /// Whatever the umask. File systems without modes ignore it.
    void setAccessMode(mode_t mode);
    /// Brings the content to the medium and gives it its name, in one step with taking the name
    /// from another file. On failure that file is as it was.
    [[nodiscard]] bool commit(const QByteArray &name);

private:
    bool openNamed(mode_t mode);
    bool nameTemporarily();

    int m_directory;
    Storage m_storage;
    core::Descriptor m_file{-1};
    QByteArray m_temporaryName; ///< Empty if it has none.
};

} // namespace share
