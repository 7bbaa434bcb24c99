#include "ui/pages/diskanalyzerpage/filedeletion.h"

#include "ui/pages/diskanalyzerpage/duplicategroups.h"
#include "ui/pages/diskanalyzerpage/largefilemodel.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace diskanalyzer {

namespace {

constexpr int kMaxNamedFiles = 5;

bool isAsScanned(const ScannedFile &file)
{
    const QFileInfo info(file.path);
    // A link leads to another file, which may be the very copy that is to stay.
    if (info.isSymLink() || !info.isFile() || info.size() != file.size)
        return false;
    return !file.modified.isValid() || info.lastModified() == file.modified;
}

void deleteGroup(const DeletionGroup &group, const std::function<bool()> &stopped,
                 DeletionReport *report)
{
    for (const ScannedFile &file : group.remove) {
        if (stopped())
            return;
        if (group.asDuplicates && !isAsScanned(file)) {
            report->changed.append(file.path);
            continue;
        }
        // Asked before each file: a copy may go while large ones are being removed.
        if (group.asDuplicates && !group.keep.isEmpty() &&
            std::none_of(group.keep.begin(), group.keep.end(), isAsScanned)) {
            report->lastCopy.append(file.path);
            continue;
        }
        if (QFile::remove(file.path))
            report->removed.append(file);
        else
            report->failed.append(file.path);
    }
}

QString namedFiles(const QString &heading, const QStringList &paths)
{
    if (paths.isEmpty())
        return QString();
    QString text = QStringLiteral("\n\n") + heading + QLatin1Char('\n') +
                   QStringList(paths.mid(0, kMaxNamedFiles)).join(QLatin1Char('\n'));
    if (paths.size() > kMaxNamedFiles)
        text += QStringLiteral("\n… 共 %1 个").arg(paths.size());
    return text;
}

} // namespace

DeletionGroup deletionOf(const QVector<LargeFile> &files)
{
    DeletionGroup deletion;
    for (const LargeFile &file : files)
        deletion.remove.append({file.path, file.size, file.modified});
    return deletion;
}

DeletionGroup deletionOf(const DuplicateGroup &group)
{
    DeletionGroup deletion;
    deletion.asDuplicates = true;
    for (const DuplicateFile &file : group.files)
        (file.keep ? deletion.keep : deletion.remove)
            .append({file.path, group.size, file.modified});
    return deletion;
}

DeletionReport deleteFiles(const QVector<DeletionGroup> &groups,
                           const std::function<bool()> &stopped)
{
    DeletionReport report;
    for (const DeletionGroup &group : groups)
        deleteGroup(group, stopped, &report);
    return report;
}

DeletionNotice noticeOf(const DeletionReport &report, bool asDuplicates)
{
    DeletionNotice notice;
    QString failures =
        namedFiles(QStringLiteral("无法删除文件，可能权限不足"), report.failed) +
        namedFiles(QStringLiteral("文件在扫描后发生了变化，未删除："), report.changed) +
        namedFiles(QStringLiteral("保留的副本已不存在或已变化，为避免丢失唯一的副本，未删除："),
                   report.lastCopy);
    if (report.removed.isEmpty() && !failures.isEmpty()) {
        notice.tone = DeletionNotice::Error;
        notice.title = QStringLiteral("删除失败");
        notice.message = failures.trimmed();
        return notice;
    }
    notice.tone = report.isComplete() ? DeletionNotice::Success : DeletionNotice::Warning;
    notice.title = asDuplicates ? QStringLiteral("清理完成") : QStringLiteral("删除完成");
    notice.message = QStringLiteral("成功删除 %1 个文件").arg(report.removed.size()) + failures;
    return notice;
}

} // namespace diskanalyzer
