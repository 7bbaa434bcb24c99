#include "recoveryd/carve/media/mediacarvers.h"
#include "recoveryd/carve/peek.h"

namespace services::recoveryd {

namespace {

constexpr int kMaxBoxes = 100000; // a recording in fragments has one or two a second

bool isAnyOf(const Peek &file, qint64 at, const char *words)
{
    const quint32 word = file.be32(at);
    for (const char *known = words; *known != 0; known += known[4] != 0 ? 5 : 4)
        if (word == qFromBigEndian<quint32>(known))
            return true;
    return false;
}

const char *suffixOfBrand(const Peek &file)
{
    if (file.is(4, "jP  "))
        return "jp2";
    if (!file.is(4, "ftyp") || isAnyOf(file, 8, "qt  "))
        return "mov";
    if (isAnyOf(file, 8, "avif avis"))
        return "avif";
    if (isAnyOf(file, 8, "heic heix heim heis hevc hevx mif1 msf1"))
        return "heic";
    if (isAnyOf(file, 8, "M4A  M4B  M4P "))
        return "m4a";
    if (isAnyOf(file, 8, "M4V  M4VH M4VP"))
        return "m4v";
    if (isAnyOf(file, 8, "crx "))
        return "cr3";
    return file.is(8, "3g") ? "3gp" : "mp4";
}

/// What the chain of boxes holds.
struct Chain
{
    qint64 end = 0;
    int boxes = 0;
    bool hasIndex = false; ///< What makes the data readable.
    bool hasData = false;
    bool isCut = false; ///< A box leads beyond what is there, or is as long as the file.
};

Chain walkBoxes(const Peek &file)
{
    constexpr char kKnown[] = "ftyp moov mdat free skip wide uuid meta moof mfra sidx styp pnot "
                              "PICT udta emsg prft ssix idat jP   jp2h jp2c jp2i colr xml  jumb";
    Chain chain;
    while (chain.boxes < kMaxBoxes && isAnyOf(file, chain.end + 4, kKnown)) {
        const qint64 at = chain.end;
        const bool isJpeg2000 = at == 12 && file.is(4, "jP  ");
        if (at > 0 && !isJpeg2000 && (file.is(at + 4, "ftyp") || file.is(at + 4, "jP  ")))
            break; // the next file
        const quint32 told = file.be32(at);
        const qint64 length = told == 1 ? qint64(file.be64(at + 8)) : qint64(told);
        const bool isLong = file.is(at + 4, "jp2c") && told == 0;
        if (length < 8 && !isLong)
            break;
        chain.hasIndex = chain.hasIndex || isAnyOf(file, at + 4, "moov meta jp2c moof");
        chain.hasData = chain.hasData || isAnyOf(file, at + 4, "mdat meta jp2c");
        ++chain.boxes;
        const qint64 mark = isLong ? file.find(at, file.room(), "\xFF\xD9", 2) : -1;
        if (mark >= 0) {
            chain.end = mark + 2;
            break;
        }
        if (isLong || length > file.room() - at) {
            chain.end = file.room();
            chain.isCut = true;
            break;
        }
        chain.end = at + length;
    }
    return chain;
}

} // namespace

bool carveBoxes(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const Peek boxes(reader, start);
    const Chain chain = walkBoxes(boxes);
    // Without a brand one box is no more than a length and a word.
    const bool isBranded = boxes.is(4, "ftyp") || boxes.is(4, "jP  ");
    if (chain.boxes < (isBranded ? 1 : 2))
        return false;
    if (!isBranded && (boxes.be32(0) > 0x40000000 || chain.isCut))
        return false;
    file->setKind(suffixOfBrand(boxes));
    file->inside = Inside::Frames;
    const bool isWhole = chain.hasIndex && chain.hasData && !chain.isCut;
    file->setEnd(chain.end, isWhole           ? Evidence::End
                            : chain.boxes > 1 ? Evidence::Structure
                                              : Evidence::Header);
    return true;
}

} // namespace services::recoveryd
