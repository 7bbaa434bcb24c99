#include "search/pathexclusion.h"

#include "search/indexroots.h"

PathExclusion::PathExclusion(const QStringList &entries)
{
    for (const QString &entry : entries) {
        const QString clean = search::cleanRoot(entry);
        if (clean.isEmpty())
            continue;
        if (clean.contains(QLatin1Char('/')))
            m_paths.insert(clean);
        else
            m_names.insert(clean);
    }
}

bool PathExclusion::excludes(const QString &cleanPath) const
{
    if (m_paths.contains(QStringLiteral("/")) && cleanPath.startsWith(QLatin1Char('/')))
        return true;
    // Each prefix that ends at a separator, the whole path last.
    for (int start = 0, end; start <= cleanPath.size(); start = end + 1) {
        end = cleanPath.indexOf(QLatin1Char('/'), start);
        if (end < 0)
            end = cleanPath.size();
        if (excludesEntry(cleanPath.mid(start, end - start), cleanPath.left(end)))
            return true;
    }
    return false;
}

SuffixSet::SuffixSet(const QStringList &entries)
{
    for (const QString &entry : entries) {
        QString suffix = entry.trimmed().toLower();
        if (suffix.startsWith(QLatin1Char('.')))
            suffix.remove(0, 1);
        m_suffixes.insert(suffix);
    }
}

bool SuffixSet::matches(const QString &fileName) const
{
    const int dot = fileName.lastIndexOf(QLatin1Char('.'));
    return m_suffixes.contains(dot < 0 ? QString() : fileName.mid(dot + 1).toLower());
}
