#include "recoveryd/carve/media/mediacarvers.h"
#include "recoveryd/carve/peek.h"

namespace services::recoveryd {

namespace {

constexpr int kMaxChunks = 100000;
constexpr int kMaxTracks = 1024;

bool isWord(const Peek &file, qint64 at)
{
    for (int i = 0; i < 4; ++i)
        if (file.u8(at + i) < 0x20 || file.u8(at + i) > 0x7E)
            return false;
    return true;
}

/// Walks chunks from `at` on; whether they end at `end`, give or take the byte that pads the last.
bool endsWithChunk(const Peek &file, qint64 at, qint64 end, bool isLittle)
{
    for (int i = 0; i < kMaxChunks && at < end; ++i) {
        if (end - at < 8)
            return end - at == 1;
        if (!isWord(file, at))
            return false;
        const qint64 length = isLittle ? file.le32(at + 4) : file.be32(at + 4);
        at += 8 + length + (length & 1);
    }
    return at == end || at == end + 1;
}

const char *suffixOfRiff(const Peek &riff)
{
    return riff.is(8, "WEBP")   ? "webp"
           : riff.is(8, "AVI ") ? "avi"
           : riff.is(8, "WAVE") ? "wav"
           : riff.is(8, "ACON") ? "ani"
           : riff.is(8, "RMID") ? "rmi"
                                : nullptr;
}

} // namespace

bool carveRiff(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek riff(reader, start);
    const char *const suffix = suffixOfRiff(riff);
    if (!suffix || !isWord(riff, 12))
        return false;
    file->setKind(suffix);
    file->inside = riff.is(8, "AVI ") ? Inside::Frames : Inside::Noise;
    qint64 length = riff.le32(4);
    if (riff.is(0, "RF64") && riff.is(12, "ds64"))
        length = qint64(riff.le64(20) & 0xFFFFFFFFFFFF);
    qint64 end = 8 + length;
    const bool isChained = riff.has(0, end) && endsWithChunk(riff, 12, end, true);
    // An AVI above 1 GiB goes on in further parts.
    while (isChained && riff.is(end, "RIFF") && riff.is(end + 8, "AVIX"))
        end += 8 + qint64(riff.le32(end + 4));
    const bool isThere = riff.has(0, end);
    if (isThere && (end & 1) != 0 && riff.has(end, 1) && isChained && riff.is(8, "WEBP"))
        ++end;
    file->setEnd(qMin(end, riff.room()), isChained && isThere ? Evidence::End
                                         : isThere            ? Evidence::Structure
                                                              : Evidence::Header);
    return true;
}

bool carveForm(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek form(reader, start);
    if (!form.is(8, "AIFF") && !form.is(8, "AIFC"))
        return false;
    file->setKind("aiff");
    file->inside = Inside::Noise;
    const qint64 end = 8 + qint64(form.be32(4));
    const bool isWhole = form.has(0, end) && endsWithChunk(form, 12, end, false);
    file->setEnd(qMin(end, form.room()), isWhole ? Evidence::End : Evidence::Header);
    return true;
}

bool carveMidi(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek midi(reader, start);
    const int tracks = midi.be16(10);
    if (midi.be16(8) > 2 || tracks < 1 || tracks > kMaxTracks)
        return false;
    file->setKind("mid");
    qint64 at = 14;
    int seen = 0;
    while (seen < tracks && midi.is(at, "MTrk") && midi.has(at + 8, midi.be32(at + 4))) {
        at += 8 + qint64(midi.be32(at + 4));
        ++seen;
    }
    file->setEnd(at, seen == tracks ? Evidence::End
                     : seen > 0     ? Evidence::Structure
                                    : Evidence::Header);
    return true;
}

} // namespace services::recoveryd
