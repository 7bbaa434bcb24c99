#pragma once

#include "recoveryd/content/filecontent.h"
#include "recoveryd/devices/mediareader.h"

namespace services::recoveryd {

/// Reads a file's bytes in ascending order. One thread; keeps the last decompressed stretch.
class ContentReader
{
public:
    ContentReader(const MediaReader &media, const FileContent &content);

    /// Fills `length` bytes of the file from `offset` on; what cannot be read or decompressed
    /// becomes zeros and is counted.
    void read(qint64 offset, char *to, qint64 length);
    /// All of the file; for small ones. Empty above 64 MiB.
    QByteArray readAll();

    /// Bytes that were replaced by zeros so far, other than holes.
    qint64 lostBytes() const { return m_lostBytes; }

private:
    void readPlain(qint64 offset, char *to, qint64 length);
    void readPacked(const PackedExtent &extent, qint64 from, qint64 to, char *target);
    bool unpack(const PackedExtent &extent);

    const MediaReader &m_media;
    const FileContent &m_content;
    const PackedExtent *m_unpackedExtent = nullptr;
    QByteArray m_unpacked;
    bool m_isUnpackedGood = false;
    qint64 m_lostBytes = 0;
};

} // namespace services::recoveryd
