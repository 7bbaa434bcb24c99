#pragma once

#include "core/descriptor.h"
#include "core/fileidentity.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

namespace diskanalyzer {

/// A file as it was when it was scanned.
struct ScannedFile
{
    QString path;
    qint64 size = 0; ///< Bytes.
    QDateTime modified;
    core::FileIdentity identity; ///< Not valid if the scan reported none.
};

/// What the path of a scanned file leads to now. The folders below the scanned one are opened one
/// after the other without following links, so that the entry is inside the scanned tree, whatever
/// was exchanged meanwhile. Blocks; any thread.
class ScannedEntry
{
public:
    /// `root` is the scanned directory; if empty, the folder of the file is trusted as it is.
    ScannedEntry(const QString &root, const ScannedFile &file);

    /// The folder was reached and the entry is a regular file.
    bool isFile() const { return m_now.isValid(); }
    /// Still the file that was scanned, and not written to since.
    bool isAsScanned() const { return m_asScanned; }
    /// The name is free, or a folder on the way could not be opened: an errno value, ELOOP if a
    /// folder is a link now. 0 otherwise, also if the name stands for no regular file.
    int error() const { return m_error; }

    const core::FileIdentity &now() const { return m_now; }
    /// The open folder, for *at() calls, and the name in it.
    int folder() const { return m_folder.get(); }
    const QByteArray &name() const { return m_name; }

private:
    core::Descriptor m_folder;
    QByteArray m_name;
    core::FileIdentity m_now;
    int m_error = 0;
    bool m_asScanned = false;
};

} // namespace diskanalyzer
