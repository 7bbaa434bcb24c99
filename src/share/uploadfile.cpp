#include "share/uploadfile.h"

#include <QRandomGenerator>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace share {

namespace {

constexpr int kNameTries = 16;

/// Hidden, so that no visitor sees or asks for it, and short, however long the target's name is.
QByteArray newTemporaryName()
{
    return ".morvane-upload-" +
           QByteArray::number(QRandomGenerator::global()->generate64(), 16).rightJustified(16, '0');
}

/// File systems that flush by themselves refuse the call.
bool isFlushed(int file)
{
    return ::fsync(file) == 0 || errno == EINVAL || errno == EROFS || errno == EOPNOTSUPP;
}

} // namespace

UploadFile::UploadFile(int directory, Storage storage)
    : m_directory(directory)
    , m_storage(storage)
{}

UploadFile::~UploadFile()
{
    if (!m_temporaryName.isEmpty())
        ::unlinkat(m_directory, m_temporaryName.constData(), 0);
}

bool UploadFile::open(mode_t mode)
{
    const int file = m_storage == Storage::Unnamed
                         ? ::openat(m_directory, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, mode)
                         : -1;
    if (file < 0)
        return openNamed(mode);
    m_file.reset(file);
    return true;
}

bool UploadFile::openNamed(mode_t mode)
{
    for (int i = 0; i < kNameTries; ++i) {
        const QByteArray name = newTemporaryName();
        const int file = ::openat(m_directory, name.constData(),
                                  O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
        if (file >= 0) {
            m_file.reset(file);
            m_temporaryName = name;
            return true;
        }
        if (errno != EEXIST)
            return false;
    }
    return false;
}

bool UploadFile::write(const char *data, qint64 size)
{
    while (size > 0) {
        const ssize_t written = ::write(m_file.get(), data, static_cast<size_t>(size));
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        data += written;
        size -= written;
    }
    return true;
}

void UploadFile::setAccessMode(mode_t mode)
{
    (void)!::fchmod(m_file.get(), mode);
}

/// Only a file with a name can take the name of another in one step.
bool UploadFile::nameTemporarily()
{
    const QByteArray file = "/proc/self/fd/" + QByteArray::number(m_file.get());
    for (int i = 0; i < kNameTries; ++i) {
        const QByteArray name = newTemporaryName();
        if (::linkat(AT_FDCWD, file.constData(), m_directory, name.constData(),
                     AT_SYMLINK_FOLLOW) == 0) {
            m_temporaryName = name;
            return true;
        }
        if (errno != EEXIST)
            return false;
    }
    return false;
}

bool UploadFile::commit(const QByteArray &name)
{
    if (!isFlushed(m_file.get()) || (m_temporaryName.isEmpty() && !nameTemporarily()) ||
        ::renameat(m_directory, m_temporaryName.constData(), m_directory, name.constData()) != 0)
        return false;
    m_temporaryName.clear();
    return true;
}

} // namespace share
