#include "recoveryd/scan/decodingcheck.h"

#include "recoveryd/carve/magicindex.h"

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

/// The file by the carver whose magic stands at its beginning; false if there is none.
bool carveWhole(WindowReader &reader, CarvedFile *file)
{
    static const MagicIndex index(carvers());
    constexpr qint64 kSector = MagicIndex::kSector;
    uchar sector[kSector] = {};
    const qint64 length = qMin(kSector, reader.end());
    const uchar *const head = reader.at(0, length);
    if (!head)
        return false;
    std::memcpy(sector, head, size_t(length));
    return index.visit(sector, [&](const Carver &carver, qint64 distance) {
        *file = CarvedFile();
        return distance == 0 && carver.carve(reader, 0, file);
    });
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
    if (file.isDamaged || (!hasEnd(file.evidence) && isFollowed(file.extension)))
        return Finding::Check::Failed;
    const bool isAll = file.length == reader.size() || isZeroFrom(reader, file.length);
    return file.isDecoded && isAll ? Finding::Check::Passed : Finding::Check::None;
}

} // namespace services::recoveryd
