#include "vaultd/deploy/hookfile.h"

#include "vaultd/failure.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cstddef>
#include <cstring>
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

struct Loader
{
    const char *path;
    uint16_t machine;
    uint32_t flags;
};

const Loader kLoaders32[] = {{"/lib/ld-linux.so.2", EM_386, 0},
                             {"/lib/ld-linux-armhf.so.3", EM_ARM, 0x05000400}};

/// That of 32-bit programs beside the programs of this machine; null: there are none.
const Loader *loader32()
{
    for (const Loader &loader : kLoaders32)
        if (sizeof(void *) == 8 && QFileInfo::exists(QLatin1String(loader.path)))
            return &loader;
    return nullptr;
}

/// What the entry means to 32-bit programs, whose "$LIB" is where their loader lies; empty if
/// nothing of theirs is to be named.
QString library32Of(const QByteArray &entry)
{
    const Loader *const loader = loader32();
    if (!loader || !entry.contains(kLibToken))
        return QString();
    QByteArray folder = QFile::encodeName(QFileInfo(QLatin1String(loader->path)).canonicalPath());
    folder = folder.startsWith("/usr/") ? folder.mid(5) : folder.mid(1);
    return QFile::decodeName(QByteArray(entry).replace(kLibToken, folder));
}

/// A library with nothing in it: 32-bit programs load it instead of complaining at each start.
QByteArray emptyLibrary32()
{
    struct Image
    {
        Elf32_Ehdr header;
        Elf32_Phdr segments[3];
        Elf32_Dyn dynamic[6];
        Elf32_Word hash[4]; // One bucket, one symbol.
        Elf32_Sym symbol;
        char strings[4];
    };
    const Loader *const loader = loader32();
    Image image = {};
    std::memcpy(image.header.e_ident, ELFMAG, SELFMAG);
    image.header.e_ident[EI_CLASS] = ELFCLASS32;
    image.header.e_ident[EI_DATA] = ELFDATA2LSB;
    image.header.e_ident[EI_VERSION] = EV_CURRENT;
    image.header.e_type = ET_DYN;
    image.header.e_machine = loader ? loader->machine : EM_NONE;
    image.header.e_version = EV_CURRENT;
    image.header.e_phoff = offsetof(Image, segments);
    image.header.e_flags = loader ? loader->flags : 0;
    image.header.e_ehsize = sizeof(Elf32_Ehdr);
    image.header.e_phentsize = sizeof(Elf32_Phdr);
    image.header.e_phnum = 3;
    image.segments[0] = {PT_LOAD, 0, 0, 0, sizeof image, sizeof image, PF_R | PF_W, 0x1000};
    const Elf32_Addr dynamic = offsetof(Image, dynamic);
    image.segments[1] = {PT_DYNAMIC,           dynamic,     dynamic, dynamic, sizeof image.dynamic,
                         sizeof image.dynamic, PF_R | PF_W, 4};
    image.segments[2] = {PT_GNU_STACK, 0, 0, 0, 0, 0, PF_R | PF_W, 16};
    const Elf32_Word entries[][2] = {{DT_HASH, offsetof(Image, hash)},
                                     {DT_SYMTAB, offsetof(Image, symbol)},
                                     {DT_STRTAB, offsetof(Image, strings)},
                                     {DT_STRSZ, 1},
                                     {DT_SYMENT, sizeof(Elf32_Sym)}};
    for (size_t i = 0; i < sizeof entries / sizeof *entries; ++i) {
        image.dynamic[i].d_tag = Elf32_Sword(entries[i][0]);
        image.dynamic[i].d_un.d_val = entries[i][1];
    }
    image.hash[0] = 1;
    image.hash[1] = 1;
    return QByteArray(reinterpret_cast<const char *>(&image), sizeof image);
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

bool provideFor32Bit(const QByteArray &entry, QString *error)
{
    const QString path = library32Of(entry);
    if (path.isEmpty() || QFileInfo::exists(path))
        return true;
    QSaveFile file(path);
    const QByteArray bytes = emptyLibrary32();
    return (file.open(QIODevice::WriteOnly) &&
            file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup |
                                QFile::ReadOther) &&
            file.write(bytes) == bytes.size() && file.commit()) ||
           fail(error, QStringLiteral("无法写入 %1：%2").arg(path, file.errorString()));
}

void removeFor32Bit(const QByteArray &entry)
{
    const QString path = library32Of(entry);
    QFile file(path);
    if (!path.isEmpty() && file.open(QIODevice::ReadOnly) && file.readAll() == emptyLibrary32())
        file.remove();
}

} // namespace services::vaultd
