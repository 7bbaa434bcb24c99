#include "search/text/doctext.h"

#include "search/text/encoding.h"
#include "search/text/littleendian.h"
#include "search/text/olefile.h"
#include "search/text/textsink.h"

#include <QHash>
#include <QTextCodec>
#include <QVector>

namespace search::text {

namespace {

constexpr quint16 magic = 0xA5EC;
constexpr quint16 magicOfWord6 = 0xA5DC;
constexpr quint16 firstOfWord97 = 193;
constexpr qint64 maxStreamBytes = 64 * 1024 * 1024;
constexpr qint64 maxTableBytes = 16 * 1024 * 1024;
/// Body, footnotes, headers, macros, comments, endnotes, boxes, boxes of headers.
constexpr int partCount = 8;
constexpr int fieldNesting = 64;

enum Flag { Encrypted = 0x0100, SecondTable = 0x0200, Wide = 0x1000 };

/// A run of text that lies in one piece.
struct Piece
{
    qint64 chars;
    qint64 start; ///< Byte in the document's stream.
    bool wide;
};

int codePageOfLanguage(int language)
{
    static const QHash<int, int> pages{{0x804, 936}, {0x1004, 936}, {0x404, 950}, {0xC04, 950},
                                       {0x411, 932}, {0x412, 949},  {0x419, 1251}};
    return pages.value(language, 1252);
}

class DocReader
{
public:
    DocReader(OleFile &file, TextSink *sink)
        : m_file(file)
        , m_sink(*sink)
    {}

    void read()
    {
        m_stream = m_file.read(QStringLiteral("WordDocument"), maxStreamBytes);
        const quint16 ident = wordAt(m_stream, 0);
        m_flags = wordAt(m_stream, 10);
        if ((ident != magic && ident != magicOfWord6) || (m_flags & Encrypted) != 0)
            return;
        m_isNew = wordAt(m_stream, 2) >= firstOfWord97;
        m_codec = QTextCodec::codecForName(
            m_isNew ? QByteArray("windows-1252")
                    : codePageName(codePageOfLanguage(wordAt(m_stream, 6))));
        readPieces();
        writeParts();
    }

private:
    void readPieces()
    {
        const qint64 place = m_isNew ? 0x1A2 : 0x160;
        const qint64 start = dwordAt(m_stream, place);
        const qint64 bytes = qMin<qint64>(maxTableBytes, dwordAt(m_stream, place + 4));
        QByteArray table = m_stream;
        if (m_isNew) {
            const bool second = (m_flags & SecondTable) != 0;
            table = m_file.read(second ? QStringLiteral("1Table") : QStringLiteral("0Table"),
                                start + bytes);
        }
        const qint64 end = qMin<qint64>(table.size(), start + bytes);
        qint64 at = start;
        while (at + 3 <= end && table.at(int(at)) == 1) // Properties of hasty saves.
            at += 3 + wordAt(table, at + 1);
        if (at + 5 <= end && table.at(int(at)) == 2)
            readPieceTable(
                table.mid(int(at + 5), int(qMin<qint64>(end - at - 5, dwordAt(table, at + 1)))));
        if (m_pieces.isEmpty() && !m_isNew) {
            const bool wide = (m_flags & Wide) != 0;
            m_pieces.append({m_stream.size(), dwordAt(m_stream, 0x18), wide});
        }
    }

    /// First the places where pieces begin in the text, then eight bytes about each piece.
    void readPieceTable(const QByteArray &table)
    {
        const int count = (table.size() - 4) / 12;
        for (int i = 0; i < count; ++i) {
            const qint64 first = dwordAt(table, 4 * i);
            const qint64 last = dwordAt(table, 4 * (i + 1));
            const quint32 place = dwordAt(table, 4 * (count + 1) + 8 * i + 2);
            if (last <= first)
                continue;
            const bool narrow = m_isNew ? (place & 0x40000000) != 0 : (m_flags & Wide) == 0;
            const qint64 start = m_isNew && narrow ? (place & 0x3FFFFFFF) / 2 : place & 0x3FFFFFFF;
            m_pieces.append({last - first, start, !narrow});
        }
    }

    /// The parts stand one behind the other in the pieces. Where one begins, a note left open does
    /// not go on.
    void writeParts()
    {
        qint64 left = 0;
        int part = -1;
        for (const Piece &piece : qAsConst(m_pieces)) {
            qint64 done = 0;
            while (done < piece.chars && part < partCount && !m_sink.isFull()) {
                if (left == 0) {
                    ++part;
                    left = part < partCount ? partChars(part) : 0;
                    m_fields.clear();
                    m_sink.endParagraph();
                    continue;
                }
                const qint64 count = qMin(left, piece.chars - done);
                writeText(textOf(piece, done, count));
                done += count;
                left -= count;
            }
        }
        m_sink.endParagraph();
    }

    qint64 partChars(int part) const
    {
        const qint64 chars = dwordAt(m_stream, (m_isNew ? 0x4C : 0x34) + 4 * part);
        return chars > 0x7FFFFFFF ? 0 : chars;
    }

    QString textOf(const Piece &piece, qint64 first, qint64 count) const
    {
        if (piece.wide)
            return utf16At(m_stream, piece.start + 2 * first, count);
        const qint64 start = piece.start + first;
        const qint64 bytes = qBound<qint64>(0, m_stream.size() - start, count);
        return m_codec && start >= 0 && bytes > 0
                   ? m_codec->toUnicode(m_stream.constData() + start, int(bytes))
                   : QString();
    }

    void writeText(const QString &text)
    {
        for (const QChar c : text) {
            if (m_sink.isFull())
                return;
            writeChar(c);
        }
    }

    /// Fields show what stands behind their middle mark.
    bool isFieldCode() const { return m_fields.contains(true); }

    void writeChar(QChar c)
    {
        const ushort unit = c.unicode();
        if (unit == 0x13) {
            if (m_fields.size() < fieldNesting)
                m_fields.append(true);
        } else if (unit == 0x14) {
            if (!m_fields.isEmpty())
                m_fields.last() = false;
        } else if (unit == 0x15) {
            if (!m_fields.isEmpty())
                m_fields.removeLast();
        } else if (!isFieldCode()) {
            writeShown(unit);
        }
    }

    void writeShown(ushort unit)
    {
        if (unit == 0x0D || unit == 0x0C || unit == 0x0E)
            m_sink.endParagraph();
        else if (unit == 0x07)
            m_sink.endCell();
        else if (unit == 0x0B)
            m_sink.softBreak();
        else if (unit == 0x1E)
            m_sink.append(QLatin1Char('-'));
        else if (unit >= 0x20 || unit == 0x09)
            m_sink.append(QChar(unit));
    }

    OleFile &m_file;
    TextSink &m_sink;
    QByteArray m_stream;
    QTextCodec *m_codec = nullptr;
    QVector<Piece> m_pieces;
    QVector<bool> m_fields; ///< Of the open fields whether their code is being read.
    quint16 m_flags = 0;
    bool m_isNew = true;
};

} // namespace

void readDoc(OleFile &file, TextSink *sink)
{
    DocReader(file, sink).read();
}

} // namespace search::text
