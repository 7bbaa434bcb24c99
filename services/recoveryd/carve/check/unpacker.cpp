#include "recoveryd/carve/check/unpacker.h"

#include <bzlib.h>
#include <lzma.h>
#include <zlib.h>
#include <zstd.h>

namespace services::recoveryd {

namespace {

constexpr quint64 kXzMemory = 96 * 1024 * 1024;
constexpr int kZstdWindowLog = 26; // 64 MiB

/// zlib: raw deflate, or gzip with its checksum.
class Inflater : public Unpacker
{
public:
    explicit Inflater(int windowBits) { m_isGood = inflateInit2(&m_stream, windowBits) == Z_OK; }
    ~Inflater() override { inflateEnd(&m_stream); }

    State step(const uchar **in, qint64 *inLength, uchar **out, qint64 *outLength) override
    {
        if (!m_isGood)
            return State::Bad;
        m_stream.next_in = const_cast<uchar *>(*in);
        m_stream.avail_in = uInt(*inLength);
        m_stream.next_out = *out;
        m_stream.avail_out = uInt(*outLength);
        const int result = inflate(&m_stream, Z_NO_FLUSH);
        *in = m_stream.next_in;
        *inLength = m_stream.avail_in;
        *out = m_stream.next_out;
        *outLength = m_stream.avail_out;
        if (result == Z_STREAM_END)
            return State::End;
        return result == Z_OK || result == Z_BUF_ERROR ? State::More : State::Bad;
    }

private:
    z_stream m_stream = {};
    bool m_isGood = false;
};

class Bunzipper : public Unpacker
{
public:
    Bunzipper() { m_isGood = BZ2_bzDecompressInit(&m_stream, 0, 0) == BZ_OK; }
    ~Bunzipper() override
    {
        if (m_isGood)
            BZ2_bzDecompressEnd(&m_stream);
    }

    State step(const uchar **in, qint64 *inLength, uchar **out, qint64 *outLength) override
    {
        if (!m_isGood)
            return State::Bad;
        m_stream.next_in = reinterpret_cast<char *>(const_cast<uchar *>(*in));
        m_stream.avail_in = unsigned(*inLength);
        m_stream.next_out = reinterpret_cast<char *>(*out);
        m_stream.avail_out = unsigned(*outLength);
        const int result = BZ2_bzDecompress(&m_stream);
        *in = reinterpret_cast<const uchar *>(m_stream.next_in);
        *inLength = m_stream.avail_in;
        *out = reinterpret_cast<uchar *>(m_stream.next_out);
        *outLength = m_stream.avail_out;
        return result == BZ_STREAM_END ? State::End : result == BZ_OK ? State::More : State::Bad;
    }

private:
    bz_stream m_stream = {};
    bool m_isGood = false;
};

class XzUnpacker : public Unpacker
{
public:
    XzUnpacker() { m_isGood = lzma_stream_decoder(&m_stream, kXzMemory, 0) == LZMA_OK; }
    ~XzUnpacker() override { lzma_end(&m_stream); }

    State step(const uchar **in, qint64 *inLength, uchar **out, qint64 *outLength) override
    {
        if (!m_isGood)
            return State::Bad;
        m_stream.next_in = *in;
        m_stream.avail_in = size_t(*inLength);
        m_stream.next_out = *out;
        m_stream.avail_out = size_t(*outLength);
        const lzma_ret result = lzma_code(&m_stream, LZMA_RUN);
        *in = m_stream.next_in;
        *inLength = qint64(m_stream.avail_in);
        *out = m_stream.next_out;
        *outLength = qint64(m_stream.avail_out);
        if (result == LZMA_STREAM_END)
            return State::End;
        return result == LZMA_OK || result == LZMA_BUF_ERROR ? State::More : State::Bad;
    }

private:
    lzma_stream m_stream = LZMA_STREAM_INIT;
    bool m_isGood = false;
};

class ZstdUnpacker : public Unpacker
{
public:
    ZstdUnpacker()
        : m_stream(ZSTD_createDStream())
    {
        if (m_stream)
            ZSTD_DCtx_setParameter(m_stream, ZSTD_d_windowLogMax, kZstdWindowLog);
    }
    ~ZstdUnpacker() override { ZSTD_freeDStream(m_stream); }

    State step(const uchar **in, qint64 *inLength, uchar **out, qint64 *outLength) override
    {
        if (!m_stream)
            return State::Bad;
        ZSTD_inBuffer input = {*in, size_t(*inLength), 0};
        ZSTD_outBuffer output = {*out, size_t(*outLength), 0};
        const size_t result = ZSTD_decompressStream(m_stream, &output, &input);
        *in += input.pos;
        *inLength -= qint64(input.pos);
        *out += output.pos;
        *outLength -= qint64(output.pos);
        if (ZSTD_isError(result))
            return State::Bad;
        return result == 0 ? State::End : State::More;
    }

private:
    ZSTD_DStream *m_stream;
};

} // namespace

std::unique_ptr<Unpacker> Unpacker::make(Format format)
{
    constexpr int kRaw = -15;
    constexpr int kGzip = 15 + 16;
    switch (format) {
    case Format::Deflate:
        return std::make_unique<Inflater>(kRaw);
    case Format::Gzip:
        return std::make_unique<Inflater>(kGzip);
    case Format::Bzip2:
        return std::make_unique<Bunzipper>();
    case Format::Xz:
        return std::make_unique<XzUnpacker>();
    case Format::Zstd:
        return std::make_unique<ZstdUnpacker>();
    }
    return nullptr;
}

} // namespace services::recoveryd
