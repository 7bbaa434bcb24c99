#include "ui/pages/filesearchpage/resultcache.h"

#include <QFileInfo>
#include <QVariantMap>

using core::controllers::search::SearchPathResolver;

namespace filesearch {

namespace {

const QString kPath = QStringLiteral("path");
const QString kName = QStringLiteral("name");

} // namespace

void ResultCache::set(const QVariantList &stored, const QString &error,
                      const searchsettings::Paths &paths)
{
    m_error = error;
    m_results.clear();
    m_results.reserve(stored.size());
    for (const QVariant &item : stored) {
        QVariantMap result = item.toMap();
        result.insert(kPath,
                      SearchPathResolver::toRuntimePath(paths, result.value(kPath).toString()));
        m_results.append(result);
    }
}

void ResultCache::clear()
{
    m_results.clear();
    m_error.clear();
}

void ResultCache::removeFile(const QString &path)
{
    const int index = indexOf(path);
    if (index >= 0)
        m_results.removeAt(index);
}

void ResultCache::renameFile(const QString &oldPath, const QString &newPath)
{
    const int index = indexOf(oldPath);
    if (index < 0)
        return;
    QVariantMap result = m_results.at(index).toMap();
    result.insert(kPath, newPath);
    result.insert(kName, QFileInfo(newPath).fileName());
    m_results[index] = result;
}

int ResultCache::indexOf(const QString &path) const
{
    for (int i = 0; i < m_results.size(); ++i) {
        if (m_results.at(i).toMap().value(kPath).toString() == path)
            return i;
    }
    return -1;
}

} // namespace filesearch
