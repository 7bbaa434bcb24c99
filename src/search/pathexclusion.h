#pragma once

#include <QSet>
#include <QString>
#include <QStringList>

/// Which paths stay out of the index. An entry without "/" names a segment at any depth, one with
/// "/" a path with all below it. A value: safe to copy and to use from any thread.
class PathExclusion
{
public:
    PathExclusion() = default;
    /// Entries are trimmed and cleaned, unless a directory has just that name; empty ones are
    /// ignored. Asks the disk.
    explicit PathExclusion(const QStringList &entries);

    /// Tests every segment and every parent of `cleanPath`. Case counts.
    bool excludes(const QString &cleanPath) const;

    /// The same for an entry called `name` of a directory that is itself not excluded, which is all
    /// that a walk needs to ask.
    bool excludesEntry(const QString &name, const QString &cleanPath) const
    {
        return m_names.contains(name) || m_paths.contains(cleanPath);
    }

    /// Lock files that office programs put beside an open document.
    static bool isLockFile(const QString &fileName)
    {
        return fileName.startsWith(QLatin1String(".~"));
    }

private:
    QSet<QString> m_names;
    QSet<QString> m_paths;
};

/// A set of file name suffixes as a person writes them: blanks, case and one leading dot of an
/// entry do not count. A value, as above.
class SuffixSet
{
public:
    SuffixSet() = default;
    explicit SuffixSet(const QStringList &entries);

    bool isEmpty() const { return m_suffixes.isEmpty(); }
    /// Compares what follows the last dot of the file name.
    bool matches(const QString &fileName) const;

private:
    QSet<QString> m_suffixes;
};
