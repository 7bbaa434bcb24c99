#include "vaultd/restore.h"

#include "common/jsonfile.h"
#include "common/text.h"
#include "core/pathutil.h"
#include "vaultd/failure.h"
#include "vaultd/filecopy.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <unistd.h>

namespace services {
namespace vaultd {

namespace {

constexpr int kMaxNumber = 10000;

const QString kId = QStringLiteral("id");
const QString kTargetDir = QStringLiteral("targetDir");
const QString kName = QStringLiteral("name");

QString temporaryName(const QString &id)
{
    return QStringLiteral(".morvane_restore_") + id;
}

QString inside(const QString &dir, const QString &name)
{
    return QDir(dir).filePath(name);
}

bool removeFile(const QString &path)
{
    return ::unlink(QFile::encodeName(path).constData()) == 0 || errno == ENOENT;
}

/// The name's `number`-th stand-in, shortened where the number would make it too long.
QString candidateName(const QString &fileName, int number)
{
    const QString name = numberedName(fileName, number);
    return isFileName(name) ? name : numberedName(plainName(fileName), number);
}

} // namespace

Restorer::Restorer(const VaultLayout &layout, const QString &journal, const std::atomic<bool> &stop)
    : m_layout(layout)
    , m_journal(journal)
    , m_stop(stop)
{}

bool Restorer::restore(const VaultFile &file, const QString &targetDir, QString *placed,
                       QString *error) const
{
    const VaultLock lock(m_layout);
    if (!lock.isHeld(error))
        return false;
    if (!isPlainFile(m_layout.content(file.id)))
        return fail(error, QStringLiteral("保护区中没有文件内容"));
    QString name;
    if (!place(file, targetDir, &name, error)) {
        forgetNote();
        return false;
    }
    *placed = inside(targetDir, name);
    // Until the name is on the medium, the vault's is the one that a power failure leaves.
    if (!syncDirectory(targetDir))
        return fail(
            error,
            QStringLiteral("已恢复到 %1，但未能写入磁盘，保护区中的文件仍保留").arg(*placed));
    // The content first: a record alone is dropped at the next start, a content alone comes back.
    if (!removeFile(m_layout.content(file.id)))
        return fail(error, QStringLiteral("已恢复到 %1，但无法移出保护区").arg(*placed), errno);
    syncDirectory(m_layout.root());
    removeFile(m_layout.record(file.id));
    syncDirectory(m_layout.meta());
    forgetNote();
    return true;
}

bool Restorer::place(const VaultFile &file, const QString &targetDir, QString *name,
                     QString *error) const
{
    OutputFile output(targetDir, temporaryName(file.id));
    for (int number = 0; number < kMaxNumber; ++number) {
        *name = candidateName(file.fileName, number);
        struct stat taken;
        if (look(inside(targetDir, *name), &taken))
            continue;
        if (!note(file, targetDir, *name, error))
            return false;
        if (!output.isOpen()) {
            // Of an earlier restore whose journal is lost; the name is this file's own.
            removeFile(inside(targetDir, temporaryName(file.id)));
            struct stat info;
            const QString content = m_layout.content(file.id);
            if (!output.openLink(content) &&
                (!output.open(error, 0600) || !copyInto(content, output, &info, m_stop, error)))
                return false;
            if (!output.sync(error))
                return false;
        }
        const OutputFile::Publish result = output.publish(*name, error);
        if (result != OutputFile::Publish::Taken)
            return result == OutputFile::Publish::Done;
    }
    return fail(error, QStringLiteral("目标目录中同名文件过多"));
}

bool Restorer::note(const VaultFile &file, const QString &targetDir, const QString &name,
                    QString *error) const
{
    if (!writeJson(m_journal, {{kId, file.id}, {kTargetDir, targetDir}, {kName, name}}, error))
        return false;
    syncDirectory(QFileInfo(m_journal).absolutePath());
    return true;
}

void Restorer::forgetNote() const
{
    if (!removeFile(m_journal))
        qWarning() << "[Restorer] cannot remove" << m_journal;
}

void Restorer::finishInterrupted() const
{
    QJsonObject note;
    QString error;
    if (!QFile::exists(m_journal))
        return;
    const bool isRead = readJson(m_journal, &note, &error);
    const QString id = note.value(kId).toString();
    const QString dir = note.value(kTargetDir).toString();
    const QString name = note.value(kName).toString();
    if (!isRead || !isId(id) || !QDir::isAbsolutePath(dir) || !isFileName(name)) {
        qWarning() << "[Restorer] journal dropped, it cannot be read:" << error;
        forgetNote();
        return;
    }
    const QString temporary = inside(dir, temporaryName(id));
    struct stat info;
    if (look(temporary, &info)) {
        // The file had not got its name.
        if (!removeFile(temporary))
            qWarning() << "[Restorer] cannot remove" << temporary;
        syncDirectory(dir);
    } else if (haveSameContent(inside(dir, name), m_layout.content(id)) && syncDirectory(dir)) {
        qInfo() << "[Restorer] completed the restore of" << inside(dir, name);
        removeFile(m_layout.content(id));
        syncDirectory(m_layout.root());
        removeFile(m_layout.record(id));
        syncDirectory(m_layout.meta());
    }
    forgetNote();
}

bool checkTarget(const VaultLayout &layout, const QString &targetDir, QString *error)
{
    if (!QDir::isAbsolutePath(targetDir) || targetDir.contains(QChar(QChar::Null)))
        return fail(error, QStringLiteral("目标目录须为绝对路径"));
    const QFileInfo info(targetDir);
    if (!info.isDir())
        return fail(error, QStringLiteral("目标目录不存在：%1").arg(targetDir));
    if (!info.isWritable())
        return fail(error, QStringLiteral("目标目录不可写：%1").arg(targetDir));
    if (core::isInside(info.canonicalFilePath(), layout.root()))
        return fail(error, QStringLiteral("不能恢复到保护区内"));
    return true;
}

} // namespace vaultd
} // namespace services
