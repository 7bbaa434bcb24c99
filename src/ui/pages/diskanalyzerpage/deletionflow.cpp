#include "ui/pages/diskanalyzerpage/deletionflow.h"

#include "ui/common/appnoticedialog.h"
#include "ui/pages/diskanalyzerpage/analyzertext.h"
#include "ui/pages/diskanalyzerpage/deletionnotice.h"
#include "ui/pages/diskanalyzerpage/pooltask.h"
#include "ui/pages/diskanalyzerpage/vaultwatch.h"

#include <QPointer>

#include <algorithm>

using ui::common::AppNoticeDialog;

namespace diskanalyzer {

namespace {

/// Files to be removed that the vault takes over when they are deleted.
int countCovered(const QVector<DeletionGroup> &groups, const VaultCoverage &coverage)
{
    const auto isCovered = [&coverage](const ScannedFile &file) {
        return coverage.covers(file.path, file.size);
    };
    int count = 0;
    for (const DeletionGroup &group : groups)
        count += int(std::count_if(group.remove.begin(), group.remove.end(), isCovered));
    return count;
}

} // namespace

DeletionFlow::DeletionFlow(VaultWatch *vault, QWidget *window)
    : QObject(window)
    , m_vault(vault)
    , m_window(window)
    , m_stop(std::make_shared<std::atomic<bool>>(false))
{}

DeletionFlow::~DeletionFlow()
{
    m_stop->store(true);
}

void DeletionFlow::deleteLargeFiles(const QVector<LargeFile> &files)
{
    if (files.isEmpty())
        return;
    start({deletionOf(files)}, [this, files](int vaultCount) {
        const int count = files.size();
        const QString text = count == 1 ? deleteOneText(files.first().path, vaultCount > 0)
                                        : deleteManyText(count, vaultCount);
        return DeletionQuestion::ask(m_window, text, deleteLabel(count, vaultCount));
    });
}

void DeletionFlow::cleanGroup(const DuplicateGroup &group)
{
    const int count = group.unkeptCount();
    if (count == 0) {
        AppNoticeDialog::showInfo(m_window, tr("没有可删除的文件"),
                                  tr("所有文件均已勾选保留，没有可删除的文件"));
        return;
    }
    start({deletionOf(group)}, [this, group, count](int vaultCount) {
        return confirm(cleanGroupText(group) + deletedFilesText(count, vaultCount));
    });
}

void DeletionFlow::cleanAll(const DuplicateResult &result)
{
    const int count = result.unkeptCount();
    if (count == 0) {
        AppNoticeDialog::showInfo(m_window, tr("没有可删除的文件"), tr("没有需要删除的文件"));
        return;
    }
    Groups groups;
    for (const DuplicateGroup &group : result.groups) {
        if (group.unkeptCount() > 0)
            groups.append(deletionOf(group));
    }
    start(groups, [this, result, count](int vaultCount) {
        return confirm(cleanAllText(result) + deletedFilesText(count, vaultCount));
    });
}

DeletionChoice DeletionFlow::confirm(const QString &text)
{
    return AppNoticeDialog::confirmDestruction(m_window, tr("确认删除"), text, tr("删除"))
               ? DeletionChoice::Permanent
               : DeletionChoice::Keep;
}

void DeletionFlow::start(Groups groups, const Question &ask)
{
    if (m_running)
        return;
    for (DeletionGroup &group : groups)
        group.root = m_root;
    // The answer may arrive while the user reads; then what was said of the vault may not hold.
    m_vault->refresh();
    const QPointer<DeletionFlow> self(this);
    for (;;) {
        const int vaultCount = countCovered(groups, m_vault->coverage());
        const DeletionChoice choice = ask(vaultCount);
        if (!self || choice == DeletionChoice::Keep || m_running)
            return;
        const bool toTrash = choice == DeletionChoice::Trash;
        if (toTrash || countCovered(groups, m_vault->coverage()) >= vaultCount)
            return run(groups, toTrash);
    }
}

void DeletionFlow::run(const Groups &groups, bool toTrash)
{
    m_running = true;
    emit runningChanged(true);
    const bool asDuplicates = groups.first().asDuplicates;
    DeletionOptions options;
    options.toTrash = toTrash;
    options.reachesVault = [coverage = m_vault->coverage()](const ScannedFile &file) {
        return coverage.covers(file.path, file.size);
    };
    const auto work = [groups, options, stop = m_stop] {
        return deleteFiles(groups, options, [stop] { return stop->load(); });
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
