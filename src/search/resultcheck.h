#pragma once

#include <QString>
#include <QStringList>
#include <QVariantList>

#include <functional>

namespace search {

/// Looks whether the files of results are there. Never asks a file system that may not answer,
/// as one of the network: its files count as there.
class ResultCheck
{
public:
    /// Index roots as this program can open them, and what stands before stored paths at run time.
    ResultCheck() = default;
    ResultCheck(const QStringList &roots, const QString &storedPrefix);

    /// Without roots nothing is known of any file.
    bool isActive() const { return !m_roots.isEmpty(); }
    /// `rows` without the files that are gone. Rows below a root that is missing, or empty as a
    /// mount point without its disk is, stay and have "offline" set to true.
    QVariantList checked(const QVariantList &rows) const;
    /// The first `limit` rows that `search`, which takes a limit, finds and that pass. Asks for
    /// more where files were gone, a few times.
    QVariantList filled(int limit, const std::function<QVariantList(int limit)> &search) const;

private:
    QStringList m_roots;
    QString m_storedPrefix;
};

} // namespace search
