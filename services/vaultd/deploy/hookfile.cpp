#include "vaultd/deploy/hookfile.h"

#include "vaultd/failure.h"

#include <QFile>
#include <QFileInfo>

#include <dlfcn.h>
#include <elf.h>
#include <sys/stat.h>
#include <unistd.h>

namespace services::vaultd {

namespace {

const QByteArray kLibToken("$LIB");

/// "lib/x86_64-linux-gnu", "lib64" or the like.
QByteArray libFolder()
{
    Dl_info info;
    if (::dladdr(reinterpret_cast<void *>(&::getppid), &info) == 0 || !info.dli_fname)
        return QByteArrayLiteral("lib");
    QByteArray folder(info.dli_fname);
    folder = folder.left(folder.lastIndexOf('/'));
    if (folder.startsWith("/usr/"))
        folder = folder.mid(4);
    return folder.mid(1);
}

} // namespace

QString libraryOf(const QByteArray &entry)
{
    return QFile::decodeName(QByteArray(entry).replace(kLibToken, libFolder()));
}

bool checkLibrary(const QString &path, QString *error)
{
    QFile file(path);
    struct stat info;
    if (!file.open(QIODevice::ReadOnly) || ::fstat(file.handle(), &info) != 0)
        return fail(error, QStringLiteral("预加载库文件缺失：%1").arg(path));
    const bool isOwn = info.st_uid == 0 || info.st_uid == ::geteuid();
    if (!S_ISREG(info.st_mode) || !isOwn || (info.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return fail(error, QStringLiteral("预加载库可被他人修改，不予采用：%1").arg(path));
    const QByteArray head = file.read(EI_NIDENT);
    const char bits = sizeof(void *) == 8 ? ELFCLASS64 : ELFCLASS32;
    if (head.size() < EI_NIDENT || !head.startsWith(ELFMAG) || head.at(EI_CLASS) != bits)
        return fail(error, QStringLiteral("预加载库已损坏：%1").arg(path));
    return true;
}

bool isMissingFor32Bit(const QByteArray &entry)
{
    const bool runs32Bit =
        sizeof(void *) == 8 && (QFileInfo::exists(QStringLiteral("/lib/ld-linux.so.2")) ||
                                QFileInfo::exists(QStringLiteral("/lib/ld-linux-armhf.so.3")));
    if (!runs32Bit)
        return false;
    for (const char *folder : {"lib/i386-linux-gnu", "lib/arm-linux-gnueabihf", "lib32", "lib"}) {
        const QByteArray path = QByteArray(entry).replace(kLibToken, folder);
        if (entry.contains(kLibToken) && QFileInfo::exists(QFile::decodeName(path)))
            return false;
    }
    return true;
}

} // namespace services::vaultd
