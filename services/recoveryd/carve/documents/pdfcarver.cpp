#include "recoveryd/carve/documents/documentcarvers.h"
#include "recoveryd/carve/peek.h"

#include <QByteArrayList>

#include <cstring>

namespace services::recoveryd {

namespace {

constexpr qint64 kMaxPdf = qint64(256) * 1024 * 1024;
// What is taken of a document whose end is not there.
constexpr qint64 kCutLength = 4 * 1024 * 1024;
constexpr qint64 kEndMarkSize = 5;
// An object begins "123456 0 obj"; a table begins "xref".
constexpr qint64 kLookAhead = 32;

bool isSpace(uchar c)
{
    return c == ' ' || c == '\r' || c == '\n' || c == '\t';
}

bool isDigit(uchar c)
{
    return c >= '0' && c <= '9';
}

/// Whether the document goes on behind an end mark: an update appends objects, and a document made
/// for the web has an end mark near its beginning.
bool goesOn(WindowReader &reader, qint64 at)
{
    const qint64 length = qMin(kLookAhead, reader.end() - at);
    const uchar *const bytes = reader.at(at, length);
    if (!bytes)
        return false;
    qint64 i = 0;
    while (i < length && isSpace(bytes[i]))
        ++i;
    if (i >= length)
        return false;
    if (bytes[i] == '%')
        return i + 4 < length && std::memcmp(bytes + i, "%PDF-", 5) != 0;
    const char *const text = reinterpret_cast<const char *>(bytes + i);
    if (bytes[i] == 'x')
        return length - i >= 4 && std::memcmp(text, "xref", 4) == 0;
    return isDigit(bytes[i]) && ::memmem(text, size_t(length - i), " obj", 4) != nullptr;
}

/// Just behind the end mark and its line end.
qint64 behindMark(WindowReader &reader, qint64 mark)
{
    qint64 at = mark + kEndMarkSize;
    for (const uchar expected : {uchar('\r'), uchar('\n')}) {
        const uchar *const c = reader.at(at, 1);
        if (c && *c == expected)
            ++at;
    }
    return at;
}

/// Whether the last cross-reference before `end` stands where the document says. It does not if a
/// piece of the document is missing.
bool isReferenceSound(const Peek &pdf, qint64 end)
{
    constexpr qint64 kTail = 2048;
    const qint64 from = qMax(qint64(0), end - kTail);
    const uchar *const bytes = pdf.bytes(from, end - from);
    if (!bytes)
        return false;
    const QByteArray tail(reinterpret_cast<const char *>(bytes), int(end - from));
    const int word = tail.lastIndexOf("startxref");
    if (word < 0)
        return false;
    const qint64 place = tail.mid(word + 9, 24).trimmed().split('%').first().trimmed().toLongLong();
    qint64 at = place;
    while (at < place + 8 && isSpace(pdf.u8(at)))
        ++at;
    return place == 0 || pdf.is(at, "xref") || isDigit(pdf.u8(at));
}

} // namespace

bool carvePdf(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const uchar *const head = reader.at(start, 8);
    if (!head || !isDigit(head[5]) || head[6] != '.' || !isDigit(head[7]))
        return false;
    file->setKind("pdf");
    file->evidence = Evidence::Header;
    file->holdsText = true;
    const qint64 limit = qMin(reader.end(), start + kMaxPdf);
    qint64 end = -1;
    bool isOpen = true;
    for (qint64 from = start; isOpen;) {
        const qint64 mark = reader.find(from, limit, "%%EOF", kEndMarkSize);
        if (mark < 0)
            break;
        end = from = behindMark(reader, mark);
        isOpen = goesOn(reader, end);
    }
    if (end >= 0) {
        // Where the objects of an update follow and its own end is missing, the end seen is that of
        // the earlier state of the document.
        file->length = end - start;
        const bool isWhole = !isOpen && isReferenceSound(Peek(reader, start), file->length);
        file->evidence = isWhole ? Evidence::End : Evidence::Structure;
    } else {
        file->length = qMin(limit - start, kCutLength);
    }
    file->examined = file->length;
    return true;
}

} // namespace services::recoveryd
