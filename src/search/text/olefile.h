#pragma once

#include <QByteArray>
#include <QFile>
#include <QHash>
#include <QString>
#include <QStringList>
#include <QVector>

namespace search::text {

/// The streams of an OLE compound document (doc, xls, ppt and their relatives). Every chain of
/// sectors is bounded by the size of the file, whatever the document says. Used by one thread.
class OleFile
{
public:
    explicit OleFile(const QString &path)
        : m_file(path)
    {}

    /// False if the file is no compound document or its directory cannot be read.
    [[nodiscard]] bool open();

    /// True for a stream of that name; those in storages as "Storage/Stream". Case does not count.
    bool contains(const QString &name) const { return m_streams.contains(name.toLower()); }
    QStringList names() const { return m_streams.keys(); }

    /// At most `maxBytes` of a stream; what stands before the damage if a chain is broken.
    QByteArray read(const QString &name, qint64 maxBytes);

private:
    struct Stream
    {
        quint32 start;
        qint64 size;
    };

    bool readHeader();
    bool readAllocation(const QByteArray &header);
    bool readDirectory(quint32 start);
    void takeEntries(const QByteArray &directory);
    QByteArray readSector(quint32 sector);
    QByteArray readChain(quint32 start, qint64 maxBytes);
    QByteArray readSmallChain(quint32 start, qint64 maxBytes);

    QFile m_file;
    int m_sectorBytes = 512;
    qint64 m_smallLimit = 4096; ///< Smaller streams lie in the stream of small sectors.
    quint32 m_directoryStart = 0;
    quint32 m_smallTableStart = 0;
    QVector<quint32> m_next; ///< The sector behind each sector.
    QVector<quint32> m_nextSmall;
    QByteArray m_smallSectors;
    QHash<QString, Stream> m_streams; ///< By path in lower case.
};

} // namespace search::text
