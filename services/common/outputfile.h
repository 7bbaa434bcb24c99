#pragma once

#include "core/saferename.h"

#include <QString>

#include <sys/stat.h>

namespace services {

/// A file that comes into being whole: written under a temporary name beside its place, synced, and
/// given its name only then, never over another file. A process that dies before leaves at most the
/// temporary file. The destructor removes what was not published.
class OutputFile
{
public:
    /// `dir` exists; `temporaryName` is a plain name.
    OutputFile(const QString &dir, const QString &temporaryName);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    /// Fails if the temporary name is taken. `mode` as for open(2).
    [[nodiscard]] bool open(QString *error, mode_t mode = 0644);
    bool isOpen() const { return m_fd >= 0; }
    /// In place of open(): a second name of a file that is there, with its content. False, with
    /// nothing done, where that cannot be, such as on another file system.
    [[nodiscard]] bool openLink(const QString &existing);
    /// Puts such a second name in the place of what has been opened. The descriptor is the existing
    /// file's then.
    [[nodiscard]] bool becomeLink(const QString &existing);
    /// Whether the name leads to this very file.
    bool isNamed(const QByteArray &name) const;
    [[nodiscard]] bool write(const char *bytes, qint64 length, QString *error);
    /// Places a hole or goes back; the file is extended by what is written next, or by setSize().
    [[nodiscard]] bool seek(qint64 offset, QString *error);
    [[nodiscard]] bool setSize(qint64 size, QString *error);
    /// Gives the file the owner, permissions (without set-id bits) and times of another, as far as
    /// the file system and the rights of this process go.
    void setAttributes(const struct stat &info);
    /// As root: the file becomes that of its folder's owner, who is to read it. Where the file
    /// system has no owners, nothing happens.
    void giveToFolderOwner();
    /// The modification time, in milliseconds since the epoch; where the file system can hold it.
    void setModified(qint64 ms);
    /// To the medium.
    [[nodiscard]] bool sync(QString *error);
    /// SHA-256 of what the file holds, in hexadecimal, read back through a descriptor of its own
    /// after its cached pages have been let go.
    [[nodiscard]] bool readBack(QString *sha256, QString *error) const;

    /// For what else there is to set; below 0 before it is open.
    int descriptor() const { return m_fd; }

    enum class Publish { Done, Taken, Failed };
    /// Gives the file its name and syncs the directory. Taken: a file of that name is there.
    Publish publish(const QString &name, QString *error);
    /// The same for names that no text can hold.
    Publish publish(const QByteArray &name, QString *error);

private:
    QString path(const QString &name) const { return m_dir + QLatin1Char('/') + name; }

    QString m_dir;
    QString m_temporaryName;
    int m_fd = -1;
    bool m_isPublished = false;
};

/// Flushes the names in a directory to the medium.
bool syncDirectory(const QString &dir);

/// Makes one folder for files that users are to read: as root, it gets the owner of the folder
/// around it. 0 or an errno, EEXIST among them.
[[nodiscard]] int makeOutputFolder(const QString &path);
/// The same with all folders above it that are missing; true if it is there already.
[[nodiscard]] bool makeOutputPath(const QString &path);

using core::renameToFree;

/// "name (2).ext": the name's `number`-th stand-in; the name itself for 0.
QString numberedName(const QString &name, int number);

/// Publishes under `name` or, while that is taken, its stand-ins; `name` becomes the one that it
/// got. Taken only if thousands of stand-ins are.
OutputFile::Publish publishUnderFreeName(OutputFile &output, QString *name, QString *error);

/// A plain file name out of any text: no separators, no control characters, not hidden by a leading
/// dot, at most 200 bytes with its suffix kept.
QString plainName(const QString &text);

/// Bytes that the file system around `dir` has for this user; `dir` need not exist yet. -1 if
/// unknown.
qint64 freeBytesAt(const QString &dir);

} // namespace services
