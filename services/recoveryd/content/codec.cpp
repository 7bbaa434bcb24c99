#include "recoveryd/content/codec.h"

#include "recoveryd/content/lznt1.h"

#include <zlib.h>

namespace services::recoveryd {

namespace {

constexpr qint64 kMaxUnpacked = 16 * 1024 * 1024;

bool inflateAll(const QByteArray &stored, qint64 length, QByteArray *plain)
{
    plain->resize(int(length));
    uLongf got = uLongf(length);
    const int result =
        ::uncompress(reinterpret_cast<Bytef *>(plain->data()), &got,
                     reinterpret_cast<const Bytef *>(stored.constData()), uLong(stored.size()));
    // The stored bytes are padded to a sector, and the caller may want less than all of it.
    return (result == Z_OK || result == Z_BUF_ERROR) && qint64(got) == length;
}

} // namespace

bool decompress(Codec codec, const QByteArray &stored, qint64 length, QByteArray *plain)
{
    if (length < 0 || length > kMaxUnpacked)
        return false;
    switch (codec) {
    case Codec::Zlib:
        return inflateAll(stored, length, plain);
    case Codec::Lzo:
    case Codec::Zstd:
        break;
    case Codec::Lznt1:
        return decompressLznt1(stored, length, plain);
    }
    return false;
}

} // namespace services::recoveryd
