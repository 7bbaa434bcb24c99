#include "ui/pages/diskanalyzerpage/filedeletion.h"

#include "core/trash.h"
#include "ui/pages/diskanalyzerpage/duplicategroups.h"
#include "ui/pages/diskanalyzerpage/largefilemodel.h"

#include <QFile>

#include <cerrno>
#include <unistd.h>

namespace diskanalyzer {

namespace {

/// The vault's hook is loaded into this process and catches deletions by path. An errno value.
int deleteByPath(const QString &path, const ScannedEntry &entry)
{
    errno = 0;
    if (!QFile::remove(path))
        return errno == 0 ? EIO : errno;
    // A folder exchanged at this very moment led to another file.
    return core::identityAt(entry.folder(), entry.name().constData()).isSameFile(entry.now())
               ? ESTALE
               : 0;
}

/// 0, or an errno value with the file where it was.
int deleteEntry(const ScannedFile &file, const ScannedEntry &entry, const DeletionOptions &options)
{
    if (options.toTrash)
        return core::Trash().put(entry.folder(), entry.name(), QFile::encodeName(file.path),
                                 entry.now());
    if (options.reachesVault && options.reachesVault(file))
        return deleteByPath(file.path, entry);
    return ::unlinkat(entry.folder(), entry.name().constData(), 0) == 0 ? 0 : errno;
}

/// 0 stands for an entry that is no regular file.
Refusal refusalOf(int code)
{
    if (code == ELOOP)
        return Refusal::LinkInPath;
    return code == 0 || code == ESTALE ? Refusal::Changed : Refusal::System;
}

/// Asked before each file: a copy may go while large ones are being removed.
Refusal objectionTo(const ScannedEntry &entry, const DeletionGroup &group)
{
    bool isKept = !group.asDuplicates || group.keep.isEmpty();
    for (const ScannedFile &file : group.keep) {
        const ScannedEntry kept(group.root, file);
        // By a bound folder or a new hard link, what is to go has become what is to stay.
        if (kept.now().isSameFile(entry.now()))
            return Refusal::SameAsKept;
        isKept = isKept || kept.isAsScanned();
    }
    if (!entry.isAsScanned())
        return Refusal::Changed;
    return isKept ? Refusal::None : Refusal::LastCopy;
}

/// Refusal::None if the file is gone.
RefusedFile deleteFile(const DeletionGroup &group, const ScannedFile &file,
                       const DeletionOptions &options)
{
    const ScannedEntry entry(group.root, file);
    if (!entry.isFile())
        return {file.path, refusalOf(entry.error()), entry.error()};
    const Refusal objection = objectionTo(entry, group);
    if (objection != Refusal::None)
        return {file.path, objection, 0};
    const int code = deleteEntry(file, entry, options);
    return {file.path, code == 0 ? Refusal::None : refusalOf(code), code};
}

} // namespace

DeletionGroup deletionOf(const QVector<LargeFile> &files)
{
    DeletionGroup deletion;
    for (const LargeFile &file : files)
        deletion.remove.append({file.path, file.size, file.modified, file.identity});
    return deletion;
}

DeletionGroup deletionOf(const DuplicateGroup &group)
{
    DeletionGroup deletion;
    deletion.asDuplicates = true;
    for (const DuplicateFile &file : group.files)
        (file.keep ? deletion.keep : deletion.remove)
            .append({file.path, group.size, file.modified, file.identity});
    return deletion;
}

DeletionReport deleteFiles(const QVector<DeletionGroup> &groups, const DeletionOptions &options,
                           const std::function<bool()> &stopped)
{
    DeletionReport report;
    report.toTrash = options.toTrash;
    for (const DeletionGroup &group : groups) {
        for (const ScannedFile &file : group.remove) {
            if (stopped())
                return report;
            const RefusedFile refused = deleteFile(group, file, options);
            if (refused.reason == Refusal::None)
                report.removed.append(file);
            else
                report.refused.append(refused);
        }
    }
    return report;
}

} // namespace diskanalyzer
