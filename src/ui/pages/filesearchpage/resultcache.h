#pragma once

#include "search/searchsettings.h"

#include <QString>
#include <QVariantList>

namespace filesearch {

/// Unfiltered answer of the last search, with runtime paths in place of the stored ones.
class ResultCache
{
public:
    void set(const QVariantList &stored, const QString &error, const searchsettings::Paths &paths);
    void clear();

    /// A file that went or moved; nothing happens for one that is not here.
    void removeFile(const QString &path);
    void renameFile(const QString &oldPath, const QString &newPath);

    const QVariantList &results() const { return m_results; }
    const QString &error() const { return m_error; }

private:
    int indexOf(const QString &path) const;

    QVariantList m_results;
    QString m_error;
};

} // namespace filesearch
