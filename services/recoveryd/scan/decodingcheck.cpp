#include "recoveryd/scan/decodingcheck.h"

#include "recoveryd/carve/magicindex.h"
#include "recoveryd/carve/text/textrun.h"

#include <QStringList>

#include <cstring>

namespace services::recoveryd {

namespace {

constexpr qint64 kMaxPadding = 64 * 1024;

/// The file's stretches in its own order; empty if some of its bytes are not plainly there.
QVector<Range> piecesOf(const FileContent &content)
{
    QVector<Range> pieces;
    qint64 at = 0;
    for (const Extent &extent : content.extents) {
        if (extent.logical != at)
            return {};
        pieces.append({extent.physical, qMin(extent.length, content.size - at)});
        at = extent.logicalEnd();
    }
    const bool isPlain = content.packed.isEmpty() && content.inlineBytes.isEmpty();
    return isPlain && at >= content.size ? pieces : QVector<Range>();
}

/// Formats whose every file is followed to its end, so that a break is damage.
bool isFollowed(const QString &suffix)
{
    static const QStringList followed = {
        QStringLiteral("png"), QStringLiteral("jpg"), QStringLiteral("gz"),  QStringLiteral("tgz"),
        QStringLiteral("bz2"), QStringLiteral("xz"),  QStringLiteral("txz"), QStringLiteral("docx"),
        QStringLiteral("zip"), QStringLiteral("odt"), QStringLiteral("xlsx")};
    return followed.contains(suffix);
}

bool isZeroFrom(WindowReader &reader, qint64 at)
{
    const qint64 length = reader.end() - at;
    const uchar *const rest = length <= kMaxPadding ? reader.at(at, length) : nullptr;
    for (qint64 i = 0; rest && i < length; ++i)
        if (rest[i] != 0)
            return false;
    return rest != nullptr;
}

/// The file by the carver whose magic stands in its first sectors; false if there is none.
bool carveWhole(WindowReader &reader, CarvedFile *file)
{
    static const MagicIndex index(carvers());
    constexpr qint64 kSector = MagicIndex::kSector;
    constexpr qint64 kDiscMagic = 32768; // the only one that does not stand in the first sector
    for (const qint64 at : {qint64(0), kDiscMagic}) {
        uchar sector[kSector] = {};
        const qint64 length = qMin(kSector, reader.end() - at);
        const uchar *const bytes = length > 0 ? reader.at(at, length) : nullptr;
        if (!bytes)
            return false;
        std::memcpy(sector, bytes, size_t(length));
        const bool isCarved = index.visit(sector, [&](const Carver &carver, qint64 distance) {
            *file = CarvedFile();
            return distance == at && carver.carve(reader, 0, file);
        });
        if (isCarved)
            return true;
    }
    return false;
}

/// The file as a text that goes on to its end.
bool readAsText(WindowReader &reader, CarvedFile *file)
{
    constexpr qint64 kSector = MagicIndex::kSector;
    TextRun text;
    TextRun::Step step = TextRun::Step::More;
    for (qint64 at = 0; at < reader.end() && step == TextRun::Step::More; at += kSector) {
        const qint64 length = qMin(kSector, reader.end() - at);
        const uchar *const sector = reader.at(at, length);
        step = sector ? text.take(at, sector, length) : TextRun::Step::NoText;
    }
    return step != TextRun::Step::NoText && text.describe(reader, file);
}

bool isBroken(const CarvedFile &file)
{
    return file.isDamaged || (!hasEnd(file.evidence) && isFollowed(file.extension));
}

} // namespace

Finding::Check checkByDecoding(const MediaReader &media, const Finding &finding,
                               const std::function<bool()> &mayGoOn)
{
    const QVector<Range> pieces = piecesOf(finding.content);
    if (pieces.isEmpty())
        return Finding::Check::None;
    bool isCutShort = false;
    WindowReader reader(media, pieces, [&] {
        isCutShort = isCutShort || !mayGoOn();
        return !isCutShort;
    });
    CarvedFile file;
    const bool isKnown = carveWhole(reader, &file);
    const bool isReadable = !isCutShort && reader.error().isEmpty();
    for (const Range &piece : pieces)
        if (!isReadable || media.hasBadBytes(piece))
            return Finding::Check::None;
    if (!isKnown)
        return Finding::Check::None;
    if (isBroken(file))
        return Finding::Check::Failed;
    const bool isAll = file.length == reader.size() || isZeroFrom(reader, file.length);
    return file.isDecoded && isAll ? Finding::Check::Passed : Finding::Check::None;
}

bool completeByContents(const MediaReader &media, qint64 blockSize,
                        const std::function<bool()> &mayGoOn, Finding *finding)
{
    const QVector<Range> pieces = piecesOf(finding->content);
    if (pieces.isEmpty())
        return false;
    WindowReader reader(media, pieces, mayGoOn);
    CarvedFile file;
    const bool isFormat = carveWhole(reader, &file);
    if (isFormat && isBroken(file)) {
        finding->contentCheck = Finding::Check::Failed;
        return false;
    }
    if ((!isFormat || !hasEnd(file.evidence)) && !readAsText(reader, &file))
        return false;
    const qint64 lastBlock = (reader.size() - 1) / blockSize * blockSize;
    if (file.length <= lastBlock || !isZeroFrom(reader, file.length))
        return false;
    finding->content.cutTo(file.length);
    finding->source = FindingSource::Hybrid;
    finding->type = file.type;
    finding->extension = file.extension;
    finding->isSizeExact = true;
    // What is in the middle only a decoder has seen.
    finding->evidence = file.isDecoded ? Evidence::End : Evidence::Structure;
    finding->contentCheck = file.isDecoded ? Finding::Check::Passed : Finding::Check::None;
    return true;
}

} // namespace services::recoveryd
