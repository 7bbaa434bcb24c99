#include "vaultd/hook/protectionmap.h"

#include "core/descriptor.h"
#include "core/posixfile.h"
#include "vaultd/failure.h"
#include "vaultd/keep/vaultdir.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace services::vaultd {

namespace {

constexpr int kAlignment = 8;

/// Texts come first, then the tables that refer to them; the header is filled in last.
class MapBuilder
{
public:
    MapBuilder() { m_bytes.fill('\0', int(sizeof(GuardMapHeader))); }

    GuardText text(const QByteArray &bytes)
    {
        const GuardText text = {quint32(m_bytes.size()), quint32(bytes.size())};
        m_bytes += bytes;
        return text;
    }

    template <typename Element>
    GuardTable table(const std::vector<Element> &elements)
    {
        while (m_bytes.size() % kAlignment != 0)
            m_bytes += '\0';
        const GuardTable table = {quint32(m_bytes.size()), quint32(elements.size())};
        m_bytes.append(reinterpret_cast<const char *>(elements.data()),
                       int(elements.size() * sizeof(Element)));
        return table;
    }

    QByteArray finish(GuardMapHeader header)
    {
        header.size = quint32(m_bytes.size());
        std::memcpy(m_bytes.data(), &header, sizeof header);
        return m_bytes;
    }

private:
    QByteArray m_bytes;
};

bool precedes(const GuardExtension &a, const GuardExtension &b)
{
    return std::memcmp(a.text, b.text, sizeof a.text) < 0;
}

bool toExtensions(const QList<QByteArray> &texts, std::vector<GuardExtension> *extensions,
                  QString *error)
{
    for (const QByteArray &text : texts) {
        GuardExtension extension = {};
        if (text.isEmpty() || text.size() >= int(sizeof extension.text))
            return fail(error,
                        QStringLiteral("扩展名“%1”过长，无法保护").arg(QString::fromUtf8(text)));
        std::memcpy(extension.text, text.constData(), size_t(text.size()));
        extensions->push_back(extension);
    }
    std::sort(extensions->begin(), extensions->end(), precedes);
    extensions->erase(std::unique(extensions->begin(), extensions->end(),
                                  [](const GuardExtension &a, const GuardExtension &b) {
                                      return !precedes(a, b) && !precedes(b, a);
                                  }),
                      extensions->end());
    return true;
}

struct NamedFolder
{
    QByteArray path;
    quint32 owner;
    GuardFolderKind kind;
};

void addFolders(const QList<QByteArray> &paths, quint32 owner, GuardFolderKind kind,
                std::vector<NamedFolder> *folders)
{
    for (const QByteArray &path : paths)
        folders->push_back({path == "/" ? QByteArray() : path, owner, kind});
}

std::vector<GuardFolder> sortedFolders(std::vector<NamedFolder> folders, MapBuilder *builder)
{
    std::sort(folders.begin(), folders.end(), [](const NamedFolder &a, const NamedFolder &b) {
        return a.path == b.path ? a.owner < b.owner : a.path < b.path;
    });
    std::vector<GuardFolder> result;
    for (const NamedFolder &folder : folders)
        result.push_back({builder->text(folder.path), folder.owner, quint32(folder.kind)});
    return result;
}

/// Running programs see this at once: they have the same pages.
void markReplaced(int fd)
{
    const quint32 yes = 1;
    // Without it, programs go on with the former map until they end.
    if (::pwrite(fd, &yes, sizeof yes, offsetof(GuardMapHeader, isReplaced)) != sizeof yes)
        qWarning("morvane-vaultd: a former map cannot be marked: %s", std::strerror(errno));
}

int openFormer(const QByteArray &path)
{
    return ::open(path.constData(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
}

} // namespace

bool buildMap(const MapContent &content, quint32 generation, QByteArray *bytes, QString *error)
{
    MapBuilder builder;
    GuardMapHeader header = {};
    std::vector<GuardExtension> all;
    std::vector<GuardOwner> owners;
    std::vector<NamedFolder> folders;
    for (const MapContent::Owner &owner : content.owners) {
        std::vector<GuardExtension> extensions;
        if (!toExtensions(owner.extensions, &extensions, error))
            return false;
        all.insert(all.end(), extensions.begin(), extensions.end());
        std::vector<GuardText> names;
        for (const QByteArray &name : owner.leftOutNames)
            names.push_back(builder.text(name));
        const quint32 index = quint32(owners.size());
        addFolders(owner.folders, index, GuardProtected, &folders);
        addFolders(owner.leftOutFolders, index, GuardLeftOut, &folders);
        const quint32 flags = owner.keepsReplaced ? GuardMapReplacements : 0;
        header.flags |= quint16(flags);
        owners.push_back({owner.uid, flags, builder.table(extensions), builder.table(names)});
    }
    std::sort(all.begin(), all.end(), precedes);
    std::vector<GuardTrash> trashes;
    for (const MapContent::Trash &trash : content.trashes)
        trashes.push_back({trash.device, trash.inode, builder.text(trash.path)});
    std::vector<GuardSpool> spools;
    for (const MapContent::Spool &spool : content.spools)
        spools.push_back({spool.device, spool.uid, 0, builder.text(spool.path)});
    if (!folders.empty())
        header.flags |= GuardMapEnabled;
    header.magic = GUARD_MAP_MAGIC;
    header.version = GUARD_VERSION;
    header.uid = content.uid;
    header.generation = generation;
    header.folders = builder.table(sortedFolders(std::move(folders), &builder));
    header.extensions = builder.table(all);
    header.owners = builder.table(owners);
    header.trashes = builder.table(trashes);
    header.spools = builder.table(spools);
    *bytes = builder.finish(header);
    return guardMapIsValid(bytes->constData(), size_t(bytes->size())) ||
           fail(error, QStringLiteral("受保护的目录过多"));
}

const GuardMapHeader *mapIn(const QByteArray &bytes)
{
    return reinterpret_cast<const GuardMapHeader *>(bytes.constData());
}

bool publishMap(const QByteArray &path, const QByteArray &bytes, quint32 reader, QString *error)
{
    const QString subject = QStringLiteral("无法写入 %1").arg(QFile::decodeName(path));
    const QByteArray unfinished = path + ".new";
    ::unlink(unfinished.constData());
    const core::Descriptor file(
        ::open(unfinished.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.isOpen())
        return fail(error, subject, errno);
    int code = core::writeAll(file.get(), bytes);
    if (code == 0 && reader == GUARD_ANY_USER && ::fchmod(file.get(), 0644) != 0)
        code = errno;
    if (code == 0 && reader != GUARD_ANY_USER && reader != ::geteuid())
        allowReading(file.get(), reader, false);
    const core::Descriptor former(openFormer(path));
    if (code == 0 && ::rename(unfinished.constData(), path.constData()) != 0)
        code = errno;
    if (code != 0) {
        ::unlink(unfinished.constData());
        return fail(error, subject, code);
    }
    if (former.isOpen())
        markReplaced(former.get());
    return true;
}

void retireMap(const QByteArray &path)
{
    const core::Descriptor former(openFormer(path));
    ::unlink(path.constData());
    if (former.isOpen())
        markReplaced(former.get());
}

} // namespace services::vaultd
