#pragma once

#include <QtGlobal>

#include <memory>

namespace services::recoveryd {

/// Decompresses one stream piece by piece, in bounded memory whatever the stream says.
class Unpacker
{
public:
    enum class State { More, End, Bad };
    enum class Format { Deflate, Gzip, Bzip2, Xz, Zstd };

    virtual ~Unpacker() = default;

    /// Takes from `*in` and puts to `*out`; both are moved on and their lengths reduced. More: give
    /// it the next input, or take the output and call again. End: the stream's own end, with its
    /// checksum right where the format has one.
    virtual State step(const uchar **in, qint64 *inLength, uchar **out, qint64 *outLength) = 0;

    /// Null if there is no memory.
    static std::unique_ptr<Unpacker> make(Format format);
};

} // namespace services::recoveryd
