#include "search/text/ppttext.h"

#include "search/text/littleendian.h"
#include "search/text/textsink.h"

#include <QHash>
#include <QSet>
#include <QVector>

#include <algorithm>

namespace search::text {

namespace {

enum RecordType {
    Document = 0x3E8,
    Slide = 0x3EE,
    Notes = 0x3F0,
    SlidePersist = 0x3F3,
    MainMaster = 0x3F8,
    HeadersFooters = 0xFD9,
    TextHeader = 0xF9F,
    TextChars = 0xFA0,
    TextBytes = 0xFA8,
    CString = 0xFBA,
    SlideList = 0xFF0,
    Handout = 0xFC9,
    UserEdit = 0xFF5,
    PersistDirectory = 0x1772,
    ProgramTags = 0x1388,
    ProgramBinaryTag = 0x138A,
    BinaryTagData = 0x138B,
    Comment = 0x2EE0,
    OutlineText = 0xF9E
};

constexpr int headerBytes = 8;
constexpr int maxDepth = 32;
constexpr int maxEdits = 1000;
constexpr int maxObjects = 100000;

struct Record
{
    quint16 type = 0;
    quint16 instance = 0;
    bool isContainer = false;
    qint64 start = 0; ///< Of the content.
    qint64 end = 0;
};

/// False at the end of what lies before `limit`.
bool recordAt(const QByteArray &stream, qint64 at, qint64 limit, Record *record)
{
    if (at < 0 || at + headerBytes > limit)
        return false;
    const quint16 head = wordAt(stream, at);
    record->type = wordAt(stream, at + 2);
    record->instance = quint16(head >> 4);
    record->isContainer = (head & 0xF) == 0xF;
    record->start = at + headerBytes;
    record->end = qMin<qint64>(limit, record->start + dwordAt(stream, at + 4));
    return true;
}

class PptReader
{
public:
    PptReader(const QByteArray &stream, TextSink *sink)
        : m_stream(stream)
        , m_sink(*sink)
        , m_asides(sink->room())
    {}

    void read(const QByteArray &user)
    {
        QVector<qint64> objects = liveObjects(user);
        if (objects.isEmpty()) // A damaged directory: everything, in the order of the file.
            objects = allObjects();
        for (const qint64 at : qAsConst(objects))
            readObject(at);
        m_sink.appendParagraphs(m_asides.text());
    }

private:
    /// The newest place of each object, by number: the order in which they were made.
    QVector<qint64> liveObjects(const QByteArray &user) const
    {
        QHash<quint32, quint32> places;
        QSet<qint64> seen;
        qint64 edit = dwordAt(user, 16);
        Record record;
        while (seen.size() < maxEdits && !seen.contains(edit) &&
               recordAt(m_stream, edit, m_stream.size(), &record) && record.type == UserEdit) {
            seen.insert(edit);
            takeDirectory(dwordAt(m_stream, record.start + 12), &places);
            edit = dwordAt(m_stream, record.start + 8);
            if (edit == 0)
                break;
        }
        QList<quint32> numbers = places.keys();
        std::sort(numbers.begin(), numbers.end());
        QVector<qint64> objects;
        for (const quint32 number : qAsConst(numbers))
            objects.append(places.value(number));
        return objects;
    }

    void takeDirectory(qint64 at, QHash<quint32, quint32> *places) const
    {
        Record record;
        if (!recordAt(m_stream, at, m_stream.size(), &record) || record.type != PersistDirectory)
            return;
        for (qint64 entry = record.start; entry + 4 <= record.end;) {
            const quint32 head = dwordAt(m_stream, entry);
            entry += 4;
            for (quint32 i = 0; i < head >> 20 && entry + 4 <= record.end; ++i, entry += 4) {
                const quint32 number = (head & 0xFFFFF) + i;
                if (!places->contains(number) && places->size() < maxObjects)
                    places->insert(number, dwordAt(m_stream, entry));
            }
        }
    }

    QVector<qint64> allObjects() const
    {
        QVector<qint64> objects;
        Record record;
        for (qint64 at = 0; recordAt(m_stream, at, m_stream.size(), &record); at = record.end)
            objects.append(at);
        return objects;
    }

    void readObject(qint64 at)
    {
        Record record;
        if (m_sink.isFull() || !recordAt(m_stream, at, m_stream.size(), &record))
            return;
        if (record.type == Document || record.type == Slide || record.type == Notes)
            readContainer(record, record.type == Notes ? m_asides : m_sink, 0);
    }

    void readContainer(const Record &container, TextSink &sink, int depth)
    {
        Record record;
        for (qint64 at = container.start;
             recordAt(m_stream, at, container.end, &record) && !sink.isFull(); at = record.end) {
            if (record.isContainer || record.type == BinaryTagData) {
                if (depth < maxDepth && isShown(record))
                    readContainer(record, targetOf(record, sink), depth + 1);
            } else {
                readAtom(record, container, sink);
            }
        }
    }

    static bool isShown(const Record &record)
    {
        return record.type != MainMaster && record.type != Handout &&
               (record.type != SlideList || record.instance != 1);
    }

    /// Comments and the texts of notes follow behind the slides.
    TextSink &targetOf(const Record &record, TextSink &sink)
    {
        const bool isAside =
            record.type == Comment || (record.type == SlideList && record.instance == 2);
        return isAside ? m_asides : sink;
    }

    void readAtom(const Record &record, const Record &container, TextSink &sink)
    {
        const qint64 bytes = record.end - record.start;
        if (record.type == TextChars) {
            appendText(utf16At(m_stream, record.start, bytes / 2), sink);
        } else if (record.type == TextBytes) {
            appendText(QString::fromLatin1(m_stream.constData() + record.start, int(bytes)), sink);
        } else if (record.type == CString &&
                   (container.type == Comment || container.type == HeadersFooters)) {
            appendText(utf16At(m_stream, record.start, bytes / 2), sink);
        }
    }

    static void appendText(const QString &text, TextSink &sink)
    {
        for (const QChar c : text) {
            if (c == QLatin1Char('\r'))
                sink.endParagraph();
            else if (c == QChar(0x0B))
                sink.softBreak();
            else
                sink.append(c);
        }
        sink.endParagraph();
    }

    const QByteArray &m_stream;
    TextSink &m_sink;
    TextSink m_asides;
};

} // namespace

void readPpt(const QByteArray &stream, const QByteArray &user, TextSink *sink)
{
    PptReader(stream, sink).read(user);
}

} // namespace search::text
