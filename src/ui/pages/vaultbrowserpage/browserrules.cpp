#include "ui/pages/vaultbrowserpage/browserrules.h"

#include <QStringList>

#include <algorithm>
#include <iterator>

using protectedfiles::ProtectedFile;

namespace vaultbrowser {

QString locationText(const vault::VaultLocation &location)
{
    // In images the directory is told together with the device.
    QString dir = location.vaultParentDir;
    const QString device = location.devicePath + QLatin1Char(':');
    if (dir.startsWith(device))
        dir.remove(0, device.size());
    QStringList parts = {location.devicePath, dir, location.userName};
    parts.removeAll(QString());
    return parts.join(QStringLiteral(" -> "));
}

QString nothingFoundText(core::AppMode mode, bool targetMounted)
{
    if (mode != core::AppMode::livecd)
        return QStringLiteral("未发现包含 .morvane_vault 的已挂载分区");
    return targetMounted ? QStringLiteral("未在目标系统中发现包含 .morvane_vault 的用户目录。")
                         : QStringLiteral("未检测到目标系统挂载目录 /live_target，"
                                          "请运行Livecd工具挂载目标系统。");
}

QVector<ProtectedFile> matching(const QVector<ProtectedFile> &files, const QString &text)
{
    if (text.isEmpty())
        return files;
    QVector<ProtectedFile> found;
    std::copy_if(files.begin(), files.end(), std::back_inserter(found),
                 [&text](const ProtectedFile &file) {
                     return file.fileName.contains(text, Qt::CaseInsensitive) ||
                            file.originalPath.contains(text, Qt::CaseInsensitive);
                 });
    return found;
}

void RestoreWatch::begin(int total)
{
    *this = RestoreWatch();
    m_state = State::Starting;
    m_total = total;
}

bool RestoreWatch::start(const QString &taskId)
{
    if (m_state != State::Starting)
        return false;
    m_state = State::Running;
    m_taskId = taskId;
    return true;
}

bool RestoreWatch::isMine(const QString &taskId) const
{
    return m_state == State::Running && taskId == m_taskId;
}

bool RestoreWatch::countFile(const QString &taskId, const QString &status)
{
    if (!isMine(taskId))
        return false;
    ++m_done;
    if (status == QLatin1String("succeeded"))
        ++m_succeeded;
    else if (status == QLatin1String("failed"))
        ++m_failed;
    return true;
}

bool RestoreWatch::finish(const QString &taskId)
{
    if (!isMine(taskId))
        return false;
    m_state = State::Idle;
    return true;
}

QString RestoreWatch::progressText() const
{
    return QStringLiteral("恢复中... 成功 %1 / 失败 %2").arg(m_succeeded).arg(m_failed);
}

} // namespace vaultbrowser
