#pragma once

#include <QByteArray>
#include <QFile>
#include <QHash>
#include <QString>
#include <QStringList>
#include <QVector>

namespace search::text {

/// The members of a zip archive, read through its central directory. Every size that the archive
/// claims is checked against the file, and the output is bounded, whatever the archive says.
/// Encrypted members and those of more than 4 GiB give nothing. Used by one thread.
class ZipArchive
{
public:
    explicit ZipArchive(const QString &path)
        : m_file(path)
    {}

    /// False if the file is no archive or its directory is damaged; members before the damage stay.
    [[nodiscard]] bool open();

    /// In the order of the directory; names without a declared encoding are guessed.
    QStringList names() const { return m_names; }
    bool contains(const QString &name) const { return m_index.contains(name); }

    /// The content of a member, at most 16 MiB of it and less once 64 MiB have been unpacked from
    /// this archive; what a damaged member gives before the damage.
    QByteArray read(const QString &name);

private:
    struct Member
    {
        quint32 offset;
        quint32 packedSize;
        quint16 method;
        bool isEncrypted;
        bool hasUtf8Name;
    };

    bool readDirectory(const QByteArray &directory);
    void takeNames(const QVector<QByteArray> &rawNames, const QByteArray &encoding);
    QByteArray inflateMember(const Member &member, qint64 maxBytes);

    QFile m_file;
    QStringList m_names;
    QVector<Member> m_members;
    QHash<QString, int> m_index;
    qint64 m_unpacked = 0;
};

} // namespace search::text
