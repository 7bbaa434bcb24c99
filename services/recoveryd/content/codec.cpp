#include "recoveryd/content/codec.h"

#include "recoveryd/content/lznt1.h"
#include "recoveryd/content/lzo.h"

#include <cstring>
#include <memory>
#include <zlib.h>
#include <zstd.h>

namespace services::recoveryd {

namespace {

constexpr qint64 kMaxUnpacked = 16 * 1024 * 1024;

// A file system rounds the last stretch of a file up to a sector; the stream ends before that.
constexpr qint64 kMaxSector = 64 * 1024;

/// Fills what the stream of `got` bytes leaves of `length`.
bool padded(qint64 got, qint64 length, QByteArray *plain)
{
    if (got > length || length - got >= kMaxSector || (got == 0 && length > 0))
        return false;
    std::memset(plain->data() + got, 0, size_t(length - got));
    return true;
}

bool inflateAll(const QByteArray &stored, qint64 length, QByteArray *plain)
{
    plain->resize(int(length));
    uLongf got = uLongf(length);
    const int result =
        ::uncompress(reinterpret_cast<Bytef *>(plain->data()), &got,
                     reinterpret_cast<const Bytef *>(stored.constData()), uLong(stored.size()));
    // The stored bytes are padded to a sector, and the caller may want less than all of it.
    if (result == Z_BUF_ERROR)
        return qint64(got) == length;
    return result == Z_OK && padded(qint64(got), length, plain);
}

bool unpackZstd(const QByteArray &stored, qint64 length, QByteArray *plain)
{
    constexpr int kMaxWindowLog = 23; // 8 MiB; Btrfs uses 128 KiB
    const std::unique_ptr<ZSTD_DCtx, decltype(&ZSTD_freeDCtx)> context(ZSTD_createDCtx(),
                                                                       ZSTD_freeDCtx);
    if (!context ||
        ZSTD_isError(ZSTD_DCtx_setParameter(context.get(), ZSTD_d_windowLogMax, kMaxWindowLog)))
        return false;
    plain->resize(int(length));
    ZSTD_inBuffer in = {stored.constData(), size_t(stored.size()), 0};
    ZSTD_outBuffer out = {plain->data(), size_t(length), 0};
    std::size_t left = 1;
    while (left != 0 && out.pos < out.size) {
        const std::size_t before = in.pos + out.pos;
        left = ZSTD_decompressStream(context.get(), &out, &in);
        if (ZSTD_isError(left) || (left != 0 && in.pos + out.pos == before))
            return false;
    }
    return padded(qint64(out.pos), length, plain);
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
        return decompressLzo(stored, length, plain);
    case Codec::Zstd:
        return unpackZstd(stored, length, plain);
    case Codec::Lznt1:
        return decompressLznt1(stored, length, plain);
    }
    return false;
}

} // namespace services::recoveryd
