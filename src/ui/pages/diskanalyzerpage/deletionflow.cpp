#include "ui/pages/diskanalyzerpage/deletionflow.h"

#include "ui/common/appnoticedialog.h"
#include "ui/pages/diskanalyzerpage/analyzertext.h"
#include "ui/pages/diskanalyzerpage/mountinfo.h"
#include "ui/pages/diskanalyzerpage/pooltask.h"

#include <QPointer>

#include <algorithm>

using ui::common::AppNoticeDialog;

namespace diskanalyzer {

DeletionFlow::DeletionFlow(QWidget *window)
    : QObject(window)
    , m_window(window)
    , m_stop(std::make_shared<std::atomic<bool>>(false))
{}

DeletionFlow::~DeletionFlow()
{
    m_stop->store(true);
}

int DeletionFlow::protectedCount(const QVector<DeletionGroup> &groups) const
{
    const auto isProtected = [this](const ScannedFile &file) {
        return isProtectedPath(file.path, m_protectedDirs);
    };
    int count = 0;
    for (const DeletionGroup &group : groups)
        count += int(std::count_if(group.remove.begin(), group.remove.end(), isProtected));
    return count;
}

void DeletionFlow::deleteLargeFiles(const QVector<LargeFile> &files)
{
    if (files.isEmpty())
        return;
    const QVector<DeletionGroup> groups{deletionOf(files)};
    const int inVault = protectedCount(groups);
    confirmAndRun(files.size() == 1 ? deleteOneText(files.first().path, inVault > 0)
                                    : deleteManyText(files.size(), inVault),
                  groups);
}

void DeletionFlow::cleanGroup(const DuplicateGroup &group)
{
    if (group.unkeptCount() == 0) {
        AppNoticeDialog::showInfo(m_window, tr("提示"),
                                  tr("所有文件均已勾选保留，没有可删除的文件"));
        return;
    }
    const QVector<DeletionGroup> groups{deletionOf(group)};
    confirmAndRun(cleanGroupText(group) + protectedFilesText(protectedCount(groups)), groups);
}

void DeletionFlow::cleanAll(const DuplicateResult &result)
{
    if (result.unkeptCount() == 0) {
        AppNoticeDialog::showInfo(m_window, tr("提示"), tr("没有需要删除的文件"));
        return;
    }
    QVector<DeletionGroup> groups;
    for (const DuplicateGroup &group : result.groups) {
        if (group.unkeptCount() > 0)
            groups.append(deletionOf(group));
    }
    confirmAndRun(cleanAllText(result) + protectedFilesText(protectedCount(groups)), groups);
}

void DeletionFlow::confirmAndRun(const QString &question, const QVector<DeletionGroup> &groups)
{
    if (m_running)
        return;
    const QPointer<DeletionFlow> self(this);
    const bool confirmed = AppNoticeDialog::confirm(m_window, tr("确认删除"), question, tr("删除"));
    if (self && confirmed && !m_running)
        run(groups);
}

void DeletionFlow::run(const QVector<DeletionGroup> &groups)
{
    m_running = true;
    emit runningChanged(true);
    const bool asDuplicates = groups.first().asDuplicates;
    const auto work = [groups, stop = m_stop] {
        return deleteFiles(groups, [stop] { return stop->load(); });
    };
    runInPool(this, work,
              [this, asDuplicates](const DeletionReport &report) { finish(report, asDuplicates); });
}

void DeletionFlow::finish(const DeletionReport &report, bool asDuplicates)
{
    m_running = false;
    emit removed(report.removed);
    emit runningChanged(false);
    const DeletionNotice notice = noticeOf(report, asDuplicates);
    switch (notice.tone) {
    case DeletionNotice::Success:
        AppNoticeDialog::showSuccess(m_window, notice.title, notice.message);
        break;
    case DeletionNotice::Warning:
        AppNoticeDialog::showWarning(m_window, notice.title, notice.message);
        break;
    case DeletionNotice::Error:
        AppNoticeDialog::showError(m_window, notice.title, notice.message);
        break;
    }
}

} // namespace diskanalyzer
