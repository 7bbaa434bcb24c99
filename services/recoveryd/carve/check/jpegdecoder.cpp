#include "recoveryd/carve/check/decoding.h"

#include <csetjmp>
#include <cstdio>
#include <jerror.h>
#include <jpeglib.h>
#include <vector>

// The library reports errors by a jump. Between the two ends of the jump there is no object with a
// destructor: all that decodeJpeg() needs lives in Decoding, outside it.

namespace services::recoveryd {

namespace {

constexpr qint64 kMaxPixels = qint64(200) * 1000 * 1000;
// A progressive picture is held as a whole while it is decoded.
constexpr qint64 kMaxProgressivePixels = qint64(24) * 1000 * 1000;
constexpr long kMaxMemory = 160L * 1024 * 1024;
constexpr qint64 kMaxFill = 64 * 1024;
constexpr unsigned kScale = 8;

struct Decoding
{
    jpeg_decompress_struct info = {};
    jpeg_error_mgr errors = {};
    jpeg_source_mgr source = {};
    jpeg_progress_mgr progress = {};
    std::jmp_buf escape;
    const Peek *file = nullptr;
    qint64 at = 0;
    qint64 length = 0;
    QElapsedTimer clock;
    bool isDamaged = false;
    bool isTooMuch = false;
    std::vector<uchar> row;
};

Decoding *decodingOf(j_common_ptr info)
{
    return static_cast<Decoding *>(info->client_data);
}

[[noreturn]] void onError(j_common_ptr info)
{
    Decoding *const decoding = decodingOf(info);
    const int code = info->err->msg_code;
    if (code == JERR_OUT_OF_MEMORY || code == JERR_NO_BACKING_STORE || code == JERR_ARITH_NOTIMPL ||
        code == JERR_SOF_UNSUPPORTED)
        decoding->isTooMuch = true;
    std::longjmp(decoding->escape, 1);
}

void onMessage(j_common_ptr info, int level)
{
    const int code = info->err->msg_code;
    if (level < 0 && code != JWRN_JFIF_MAJOR && code != JWRN_ADOBE_XFORM)
        decodingOf(info)->isDamaged = true;
}

void onProgress(j_common_ptr info)
{
    Decoding *const decoding = decodingOf(info);
    if (decoding->clock.elapsed() > DecodingBudget::kMilliseconds) {
        decoding->isTooMuch = true;
        std::longjmp(decoding->escape, 1);
    }
}

void onSource(j_decompress_ptr) {}

boolean onFill(j_decompress_ptr info)
{
    Decoding *const decoding = decodingOf(reinterpret_cast<j_common_ptr>(info));
    static const JOCTET end[2] = {0xFF, JPEG_EOI};
    const WindowReader::Span held =
        decoding->file->reader().span(decoding->file->start() + decoding->at);
    const qint64 part = qMin(qMin(held.length, decoding->length - decoding->at), kMaxFill);
    if (part <= 0) {
        decoding->isDamaged = true;
        decoding->source.next_input_byte = end;
        decoding->source.bytes_in_buffer = sizeof(end);
        return TRUE;
    }
    decoding->source.next_input_byte = held.bytes;
    decoding->source.bytes_in_buffer = size_t(part);
    decoding->at += part;
    return TRUE;
}

void onSkip(j_decompress_ptr info, long count)
{
    Decoding *const decoding = decodingOf(reinterpret_cast<j_common_ptr>(info));
    while (count > long(decoding->source.bytes_in_buffer)) {
        count -= long(decoding->source.bytes_in_buffer);
        onFill(info);
        if (decoding->isDamaged)
            return;
    }
    decoding->source.next_input_byte += count;
    decoding->source.bytes_in_buffer -= size_t(qMax(0L, count));
}

void prepare(Decoding *decoding)
{
    decoding->info.err = jpeg_std_error(&decoding->errors);
    decoding->errors.error_exit = onError;
    decoding->errors.emit_message = onMessage;
    decoding->info.client_data = decoding;
    jpeg_create_decompress(&decoding->info);
    decoding->info.mem->max_memory_to_use = kMaxMemory;
    decoding->source.init_source = onSource;
    decoding->source.fill_input_buffer = onFill;
    decoding->source.skip_input_data = onSkip;
    decoding->source.resync_to_restart = jpeg_resync_to_restart;
    decoding->source.term_source = onSource;
    decoding->info.src = &decoding->source;
    decoding->progress.progress_monitor = onProgress;
    decoding->info.progress = &decoding->progress;
    decoding->clock.start();
}

void decode(Decoding *decoding)
{
    jpeg_decompress_struct &info = decoding->info;
    jpeg_read_header(&info, TRUE);
    const qint64 pixels = qint64(info.image_width) * info.image_height;
    if (pixels > (info.progressive_mode ? kMaxProgressivePixels : kMaxPixels)) {
        decoding->isTooMuch = true;
        return;
    }
    info.scale_num = 1;
    info.scale_denom = kScale;
    info.dct_method = JDCT_IFAST;
    info.do_fancy_upsampling = FALSE;
    info.out_color_space = info.jpeg_color_space;
    jpeg_start_decompress(&info);
    decoding->row.resize(size_t(info.output_width) * size_t(info.output_components));
    JSAMPROW row = decoding->row.data();
    while (info.output_scanline < info.output_height && !decoding->isDamaged)
        jpeg_read_scanlines(&info, &row, 1);
    if (!decoding->isDamaged)
        jpeg_finish_decompress(&info);
}

/// False if it was left by a jump.
bool decodeGuarded(Decoding *decoding)
{
    if (setjmp(decoding->escape) != 0) // NOLINT: the library's own way
        return false;
    prepare(decoding);
    decode(decoding);
    return true;
}

} // namespace

Decoded decodeJpeg(const Peek &file, qint64 length)
{
    Decoding decoding;
    decoding.file = &file;
    decoding.length = length;
    const bool isDone = decodeGuarded(&decoding);
    jpeg_destroy_decompress(&decoding.info);
    if (decoding.isTooMuch)
        return Decoded::Unknown;
    return isDone && !decoding.isDamaged ? Decoded::Good : Decoded::Bad;
}

} // namespace services::recoveryd
