#pragma once

#include <QByteArray>
#include <QHash>

namespace services::recoveryd::ntfs {

/// The recycle bin of Windows: "$Recycle.Bin/<SID>/$I<code>" says where "$R<code>" beside it came
/// from, and when it was deleted. Versions 1 (Vista to 8) and 2 (10 and later).
class RecycleBin
{
public:
    /// Whether the path leads into a bin.
    static bool isInside(const QByteArray &folder);

    /// Reads the contents of a "$I" file; anything else is ignored.
    void addInfo(const QByteArray &folder, const QByteArray &name, const QByteArray &contents);
    /// Turns the place of a file in the bin, or below a folder in it, into the one it was deleted
    /// from. False if the bin does not say.
    [[nodiscard]] bool restore(QByteArray *folder, QByteArray *name, qint64 *deletedMs) const;

private:
    struct Origin
    {
        QByteArray path;
        qint64 deletedMs = 0;
    };

    QHash<QByteArray, Origin> m_origins; ///< By the path of the "$R" file or folder.
};

} // namespace services::recoveryd::ntfs
