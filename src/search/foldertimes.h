#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include <functional>

/// The modification times of directories that nobody watches. A directory's time changes when
/// something is made, renamed or removed in it, not when a file in it is written.
class FolderTimes
{
public:
    /// Takes the time of a directory as it is now.
    void add(const QString &dir);
    bool contains(const QString &dir) const { return m_times.contains(dir); }
    /// Forgets a directory and all below it.
    void removeInside(const QString &dir);
    bool isEmpty() const { return m_times.isEmpty(); }
    int size() const { return m_times.size(); }

    /// Compares all directories and keeps the new times. `breathe` is called now and then; false
    /// ends it.
    struct Changes
    {
        QStringList changed;
        QStringList gone;
    };
    Changes compare(const std::function<bool()> &breathe);

    /// The directories whose parent is not among them, sorted.
    QStringList outermost() const;

private:
    QHash<QString, qint64> m_times; ///< Nanoseconds since the epoch.
};
