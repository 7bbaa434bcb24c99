#include "recoveryd/ntfs/logfile.h"

#include "recoveryd/content/contentreader.h"

#include <QtEndian>

#include <cstring>

namespace services::recoveryd::ntfs {

namespace {

constexpr int kPage = 4096;
constexpr qint64 kPiece = 4 * 1024 * 1024;
constexpr qint64 kMaxLog = 4LL * 1024 * 1024 * 1024;
constexpr int kPageHeader = 0x40; ///< With the fixup array of a page of 4096 bytes.

/// Appends what the records of a page take; a record goes on behind the header of the next page.
void appendPage(char *page, QByteArray *stream)
{
    if (std::memcmp(page, "RCRD", 4) == 0 && undoFixups(page, kPage) == kPage)
        stream->append(page + kPageHeader, kPage - kPageHeader);
}

void findRecords(const QByteArray &stream, const LogHandlers &handlers)
{
    constexpr int kStep = 8;
    for (int at = 0; at + 512 <= stream.size(); at += kStep) {
        const char *bytes = stream.constData() + at;
        Record record;
        if (bytes[0] == 'F' && parseRecordImage(bytes, stream.size() - at, &record))
            handlers.record(record);
    }
}

} // namespace

bool readLogFile(const MediaReader &media, const FileContent &log, const LogHandlers &handlers)
{
    ContentReader reader(media, log);
    QByteArray piece(int(kPiece), Qt::Uninitialized);
    QByteArray stream;
    const qint64 size = qMin(log.size, kMaxLog);
    for (qint64 at = 0; at < size; at += kPiece) {
        if (!handlers.mayGoOn())
            return false;
        const qint64 length = qMin(kPiece, size - at);
        reader.read(at, piece.data(), length);
        // The end of the last piece again, for what continues in this one.
        stream = stream.right(kPage - kPageHeader);
        for (qint64 page = 0; page + kPage <= length; page += kPage)
            appendPage(piece.data() + page, &stream);
        findRecords(stream, handlers);
        forEachIndexEntry(stream.constData(), stream.size(), handlers.indexEntry);
    }
    return true;
}

} // namespace services::recoveryd::ntfs
