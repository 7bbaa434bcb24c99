#pragma once

#include <QByteArray>
#include <QString>

#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

/// Bytes under a path, for readers that open files, without a disk.
class MemoryFile
{
public:
    explicit MemoryFile(const QByteArray &bytes)
        : m_descriptor(::memfd_create("fuzz", MFD_CLOEXEC))
    {
        if (m_descriptor < 0 ||
            ::write(m_descriptor, bytes.constData(), size_t(bytes.size())) != bytes.size())
            std::abort();
    }
    ~MemoryFile() { ::close(m_descriptor); }

    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    QString path() const { return QStringLiteral("/proc/self/fd/%1").arg(m_descriptor); }

private:
    int m_descriptor;
};
