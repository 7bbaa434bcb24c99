#include "ui/pages/filesearchpage/fileresultactions.h"

#include "search/fileactions.h"
#include "search/filemover.h"
#include "ui/common/appnoticedialog.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QFileDialog>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QGuiApplication>
#include <QMimeData>
#include <QPointer>
#include <QUrl>
#include <QtConcurrentRun>

using ui::common::AppNoticeDialog;

namespace filesearch {

namespace {

struct MoveOutcome
{
    bool moved = false;
    QString newPath;
    QString error;
};

QString failureTitle(FileAction action)
{
    switch (action) {
    case FileAction::Move:
        return FileResultActions::tr("移动失败");
    case FileAction::Delete:
        return FileResultActions::tr("删除失败");
    default:
        return FileResultActions::tr("打开失败");
    }
}

/// A link that points nowhere is still a file that one can move or delete.
bool exists(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

/// Runs `work` on a pool thread and `done` with its result on the thread of `context`, unless that
/// is gone by then.
template <typename Result>
void inBackground(QObject *context, const std::function<Result()> &work,
                  const std::function<void(const Result &)> &done)
{
    auto *watcher = new QFutureWatcher<Result>(context);
    QObject::connect(watcher, &QFutureWatcher<Result>::finished, context, [watcher, done] {
        watcher->deleteLater();
        done(watcher->result());
    });
    watcher->setFuture(QtConcurrent::run(work));
}

} // namespace

FileResultActions::FileResultActions(QWidget *dialogParent, QObject *parent)
    : QObject(parent)
    , m_dialogParent(dialogParent)
{}

void FileResultActions::run(FileAction action, const QString &path)
{
    if (path.isEmpty())
        return;
    if (m_busyPaths.contains(path)) {
        tell(tr("该文件正在处理，请稍候。"));
        return;
    }
    if (!exists(path)) {
        emit fileGone(path);
        warn(failureTitle(action == FileAction::Move ? FileAction::Move : FileAction::Open),
             tr("文件不存在或已被移除。"));
        return;
    }
    switch (action) {
    case FileAction::Open:
        return open(path);
    case FileAction::OpenFolder:
        return openFolder(path);
    case FileAction::Copy:
        return copy(path);
    case FileAction::Move:
        return move(path);
    case FileAction::Delete:
        return remove(path);
    }
}

void FileResultActions::warn(const QString &title, const QString &message, const QString &detail)
{
    AppNoticeDialog::showWarning(m_dialogParent, title, message, detail);
}

void FileResultActions::setBusy(const QString &path, bool busy)
{
    if (busy)
        m_busyPaths.insert(path);
    else
        m_busyPaths.remove(path);
    emit busyPathsChanged(m_busyPaths);
}

void FileResultActions::open(const QString &path)
{
    if (QDesktopServices::openUrl(QUrl::fromLocalFile(path)))
        tell(tr("已打开文件：%1").arg(QFileInfo(path).fileName()));
    else
        warn(failureTitle(FileAction::Open), tr("没有可以打开此文件的程序。"), path);
}

void FileResultActions::openFolder(const QString &path)
{
    const QString folder = QFileInfo(path).absolutePath();
    if (QDesktopServices::openUrl(QUrl::fromLocalFile(folder)))
        tell(tr("已打开所在目录：%1").arg(folder));
    else
        warn(failureTitle(FileAction::Open), tr("没有可以打开此目录的程序。"), folder);
}

void FileResultActions::copy(const QString &path)
{
    QGuiApplication::clipboard()->setMimeData(fileactions::clipboardData(path));
    tell(tr("已复制文件：%1").arg(QFileInfo(path).fileName()));
}

void FileResultActions::move(const QString &path)
{
    const QPointer<FileResultActions> self(this);
    const QString folder = QFileDialog::getExistingDirectory(m_dialogParent, tr("选择目标文件夹"),
                                                             QFileInfo(path).absolutePath());
    // The page may have gone, and the file with it, while the dialog was open.
    if (!self)
        return;
    if (folder.isEmpty())
        tell(tr("已取消移动。"));
    else if (exists(path))
        moveTo(path, folder);
    else
        run(FileAction::Move, path);
}

void FileResultActions::moveTo(const QString &path, const QString &folder)
{
    setBusy(path, true);
    tell(tr("正在移动：%1").arg(QFileInfo(path).fileName()));
    const auto work = [path, folder] {
        MoveOutcome outcome;
        outcome.moved = filemover::moveInto(path, folder, &outcome.newPath, &outcome.error);
        return outcome;
    };
    const auto done = [this, path](const MoveOutcome &outcome) {
        setBusy(path, false);
        if (!outcome.moved) {
            emit statusChanged(failureTitle(FileAction::Move), true);
            warn(failureTitle(FileAction::Move), tr("无法移动文件，请检查权限或目标位置。"),
                 outcome.error);
        } else if (outcome.newPath == path) {
            tell(tr("文件已在该文件夹中：%1").arg(path));
        } else {
            emit fileMoved(path, outcome.newPath);
            tell(tr("已移动到：%1").arg(outcome.newPath));
        }
    };
    inBackground<MoveOutcome>(this, work, done);
}

void FileResultActions::remove(const QString &path)
{
    const QString name = QFileInfo(path).fileName();
    const QPointer<FileResultActions> self(this);
    const bool confirmed = AppNoticeDialog::confirmDestruction(
        m_dialogParent, tr("确认删除"), tr("确定要删除文件 %1 吗？").arg(name), tr("确认"));
    if (!self)
        return;
    if (!confirmed) {
        tell(tr("已取消删除。"));
        return;
    }
    setBusy(path, true);
    tell(tr("正在移到回收站：%1").arg(name));
    const auto done = [this, path, name](const bool &moved) {
        setBusy(path, false);
        if (moved) {
            emit fileGone(path);
            tell(tr("已移到回收站：%1").arg(name));
            return;
        }
        emit statusChanged(failureTitle(FileAction::Delete), true);
        warn(failureTitle(FileAction::Delete),
             tr("无法将文件移到回收站，请检查权限或系统回收站配置。"));
    };
    inBackground<bool>(
        this, [path] { return fileactions::putIntoTrash(path); }, done);
}

} // namespace filesearch
