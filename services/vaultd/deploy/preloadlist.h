#pragma once

#include <QByteArray>
#include <QString>

#include <sys/stat.h>

namespace services::vaultd {

/// The system's list of libraries that are loaded into every program. Entries are divided by
/// blanks, colons and line ends; "#" starts a comment. Changed only as a whole: at any moment the
/// file is the former one or the new one, with the owner, rights and attributes that it had.
class PreloadList
{
public:
    explicit PreloadList(const QString &path);

    /// As it was found, to be put back by restore().
    struct Content
    {
        bool isThere = false;
        QByteArray bytes;
        struct stat info = {};
    };
    /// A missing file is an empty list; one that is no plain file, or of more than 1 MiB, is none.
    [[nodiscard]] bool read(Content *content, QString *error) const;
    [[nodiscard]] bool contains(const QByteArray &entry) const;
    /// Adds the entry at the end, unless it is there.
    [[nodiscard]] bool add(const QByteArray &entry, QString *error) const;
    /// Takes out the entry and every other path of a library of the same name; all other bytes
    /// stay. A file that held nothing else goes.
    [[nodiscard]] bool remove(const QByteArray &entry, QString *error) const;
    [[nodiscard]] bool restore(const Content &content, QString *error) const;

private:
    bool replace(const Content &former, const QByteArray &bytes, QString *error) const;

    QString m_path;
};

/// The same on the text. An entry is the same if its path is, or the name of the library in it.
bool listsEntry(const QByteArray &text, const QByteArray &entry);
QByteArray withEntry(const QByteArray &text, const QByteArray &entry);
QByteArray withoutEntry(const QByteArray &text, const QByteArray &entry);

} // namespace services::vaultd
