#include "vaultd/keep/takeover.h"

#include "core/directorystream.h"
#include "core/posixfile.h"
#include "vaultd/keep/capture.h"

#include <QDebug>
#include <QJsonDocument>

#include <cerrno>
#include <fcntl.h>

namespace services::vaultd {

namespace {

/// A plain file of the owner's; -1 for anything else.
int openOwn(int dir, const QByteArray &name, uid_t owner, struct stat *info)
{
    core::Descriptor file(
        ::openat(dir, name.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    const bool isFit = file.isOpen() && ::fstat(file.get(), info) == 0 && S_ISREG(info->st_mode) &&
                       info->st_uid == owner;
    return isFit ? file.release() : -1;
}

bool takeOverOne(const VaultLayout &layout, uid_t owner, int aside, int meta, const QString &id)
{
    const QByteArray recordName = VaultLayout::recordName(id).toLatin1();
    const QByteArray contentName = VaultLayout::contentName(id).toLatin1();
    struct stat info;
    struct stat recordInfo;
    const core::Descriptor record(openOwn(meta, recordName, owner, &recordInfo));
    const core::Descriptor content(openOwn(aside, contentName, owner, &info));
    QByteArray json;
    VaultFile file;
    QString error;
    if (!record.isOpen() || !content.isOpen() ||
        core::readAll(record.get(), vault::kMaxRecordBytes, &json) != 0 ||
        !parseRecord(QJsonDocument::fromJson(json).object(), id, &file, &error))
        return false;
    file.setAttributes(info);
    file.originalState.clear();
    const QByteArray list = accessListOf(content.get());
    if (!list.isEmpty())
        file.attributes.insert("system.posix_acl_access", list);
    Means means;
    const core::Descriptor folder(layout.openFolder());
    if (putRecord(layout, file) != 0)
        return false;
    // The name that goes does not make a file shared.
    struct stat alone = info;
    --alone.st_nlink;
    const int code = takeIn(content.get(), alone, folder.get(), contentName, 0, &means);
    if (code != 0 && code != EEXIST)
        return false;
    ::unlinkat(aside, contentName.constData(), 0);
    ::unlinkat(meta, recordName.constData(), 0);
    return true;
}

} // namespace

int takeOver(const VaultLayout &layout, uid_t owner, int aside)
{
    const core::Descriptor meta(
        ::openat(aside, vault::kMetaDir, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const int copy =
        meta.isOpen() ? ::openat(meta.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
    const core::DirectoryStream stream(copy < 0 ? nullptr : ::fdopendir(copy));
    QStringList ids;
    while (const struct dirent *entry = stream ? ::readdir(stream.get()) : nullptr) {
        const QString id = idOf(QString::fromLatin1(entry->d_name), VaultLayout::recordName({}));
        if (!id.isEmpty())
            ids.append(id);
    }
    int count = 0;
    for (const QString &id : qAsConst(ids))
        count += takeOverOne(layout, owner, aside, meta.get(), id) ? 1 : 0;
    if (!ids.isEmpty())
        qInfo() << "[takeOver]" << count << "of" << ids.size()
                << "files came from an earlier vault";
    return count;
}

} // namespace services::vaultd
