#include "ui/pages/diskanalyzerpage/scannedfile.h"

#include "core/openbeneath.h"
#include "core/pathutil.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <fcntl.h>

namespace diskanalyzer {

namespace {

constexpr quint64 kNsPerMs = 1000000;

/// -1 with errno.
int openFolder(const QString &root, const QString &folder)
{
    const QString from = root.isEmpty() ? folder : QDir::cleanPath(root);
    if (!core::isInside(folder, from)) {
        errno = EINVAL;
        return -1;
    }
    const core::Descriptor top(
        ::open(QFile::encodeName(from).constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!top.isOpen())
        return -1;
    const int skipped = from.endsWith(QLatin1Char('/')) ? from.size() : from.size() + 1;
    return core::openDirectoryBeneath(top.get(), QFile::encodeName(folder.mid(skipped)));
}

/// "/" for "/a".
QString folderOf(const QString &path)
{
    return path.left(qMax(1, path.lastIndexOf(QLatin1Char('/'))));
}

bool isSame(const ScannedFile &file, const core::FileIdentity &now, int folder)
{
    if (!now.isValid() || now.size != file.size)
        return false;
    if (file.identity.isValid())
        return core::isStillUnchanged(file.identity, now, folder);
    return !file.modified.isValid() ||
           qint64(now.modifiedNs / kNsPerMs) == file.modified.toMSecsSinceEpoch();
}

} // namespace

ScannedEntry::ScannedEntry(const QString &root, const ScannedFile &file)
    : m_folder(openFolder(root, folderOf(file.path)))
    , m_name(QFile::encodeName(file.path.mid(file.path.lastIndexOf(QLatin1Char('/')) + 1)))
{
    if (!m_folder.isOpen()) {
        m_error = errno;
        return;
    }
    m_now = core::identityAt(m_folder.get(), m_name.constData());
    m_error = m_now.isValid() ? 0 : errno;
    m_asScanned = isSame(file, m_now, m_folder.get());
}

} // namespace diskanalyzer
