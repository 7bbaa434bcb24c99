#include "ui/pages/diskanalyzerpage/deletionnotice.h"

#include <QStringList>

#include <cerrno>

namespace diskanalyzer {

namespace {

constexpr int kMaxNamedFiles = 20; ///< Of one reason.

QString systemReason(int code)
{
    switch (code) {
    case ENOENT:
    case ENOTDIR:
        return QStringLiteral("文件已不存在");
    case EACCES:
    case EPERM:
        return QStringLiteral("没有权限");
    case EROFS:
        return QStringLiteral("磁盘是只读的");
    case ENOSPC:
    case EDQUOT:
        return QStringLiteral("磁盘空间不足");
    case EIO:
        return QStringLiteral("磁盘读写错误");
    case EBUSY:
        return QStringLiteral("文件正被系统使用");
    case EXDEV:
        return QStringLiteral("所在的磁盘没有可用的回收站");
    case EALREADY:
        return QStringLiteral("文件已经在回收站中");
    default:
        return qt_error_string(code);
    }
}

QString heading(Refusal reason, bool toTrash)
{
    switch (reason) {
    case Refusal::LinkInPath:
        return QStringLiteral("所在的文件夹在扫描后被换成了链接，未删除：");
    case Refusal::Changed:
        return QStringLiteral("文件在扫描后发生了变化，未删除：");
    case Refusal::SameAsKept:
        return QStringLiteral("与要保留的副本已是同一个文件，未删除：");
    case Refusal::LastCopy:
        return QStringLiteral("保留的副本已不存在或已变化，为避免丢失唯一的副本，未删除：");
    default:
        return toTrash ? QStringLiteral("无法移到回收站，文件仍在原处：")
                       : QStringLiteral("无法删除文件，可能权限不足");
    }
}

QString namedFiles(const DeletionReport &report, Refusal reason)
{
    QStringList lines;
    int count = 0;
    for (const RefusedFile &file : report.refused) {
        if (file.reason != reason || ++count > kMaxNamedFiles)
            continue;
        QString line = file.path;
        if (reason == Refusal::System)
            line += QStringLiteral("（") + systemReason(file.code) + QStringLiteral("）");
        lines.append(line);
    }
    if (count == 0)
        return QString();
    QString text = QStringLiteral("\n\n") + heading(reason, report.toTrash) + QLatin1Char('\n') +
                   lines.join(QLatin1Char('\n'));
    if (count > kMaxNamedFiles)
        text += QStringLiteral("\n… 共 %1 个").arg(count);
    return text;
}

} // namespace

DeletionNotice noticeOf(const DeletionReport &report, bool asDuplicates)
{
    QString refused;
    for (Refusal reason : {Refusal::System, Refusal::LinkInPath, Refusal::Changed,
                           Refusal::SameAsKept, Refusal::LastCopy})
        refused += namedFiles(report, reason);
    DeletionNotice notice;
    if (report.removed.isEmpty() && !refused.isEmpty()) {
        notice.tone = DeletionNotice::Error;
        notice.title = QStringLiteral("删除失败");
        notice.message = refused.trimmed();
        return notice;
    }
    notice.tone = report.isComplete() ? DeletionNotice::Success : DeletionNotice::Warning;
    notice.title = asDuplicates ? QStringLiteral("清理完成") : QStringLiteral("删除完成");
    notice.message = QStringLiteral("成功删除 %1 个文件").arg(report.removed.size());
    if (report.toTrash)
        notice.message += QStringLiteral("，已移到回收站，清空回收站后才会释放空间");
    notice.message += refused;
    return notice;
}

} // namespace diskanalyzer
