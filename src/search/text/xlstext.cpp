#include "search/text/xlstext.h"

#include "search/text/biffrecord.h"
#include "search/text/encoding.h"
#include "search/text/numberformat.h"
#include "search/text/pagetext.h"
#include "search/text/textsink.h"

#include <QHash>
#include <QStringList>
#include <QVector>

#include <cstring>

namespace search::text {

namespace {

enum RecordType {
    Formula = 0x06,
    Header = 0x14,
    Footer = 0x15,
    Note = 0x1C,
    Date1904 = 0x22,
    FilePass = 0x2F,
    CodePage = 0x42,
    BoundSheet = 0x85,
    MulRk = 0xBD,
    RichString = 0xD6,
    ExtendedFormat = 0xE0,
    SharedStrings = 0xFC,
    LabelSst = 0xFD,
    TextObject = 0x1B6,
    Number = 0x203,
    Label = 0x204,
    BoolError = 0x205,
    FormulaString = 0x207,
    Rk = 0x27E,
    Format = 0x41E,
    BeginOfFile = 0x809,
    ChartText = 0x100D
};

constexpr quint16 biff8 = 0x600;
constexpr int maxStrings = 4000000;

bool isContinued(quint16 type)
{
    return type == SharedStrings || type == TextObject || type == FormulaString || type == Label ||
           type == Format;
}

/// A number of four bytes: a whole one or the upper half of a double, maybe times 100.
double rkNumber(quint32 rk)
{
    double value = 0;
    if ((rk & 2) != 0) {
        value = double(qint32(rk) >> 2);
    } else {
        const quint64 bits = quint64(rk & 0xFFFFFFFC) << 32;
        std::memcpy(&value, &bits, sizeof(value));
    }
    return (rk & 1) != 0 ? value / 100 : value;
}

QString errorText(int code)
{
    static const QHash<int, QString> texts{
        {0x00, QStringLiteral("#NULL!")},  {0x07, QStringLiteral("#DIV/0!")},
        {0x0F, QStringLiteral("#VALUE!")}, {0x17, QStringLiteral("#REF!")},
        {0x1D, QStringLiteral("#NAME?")},  {0x24, QStringLiteral("#NUM!")},
        {0x2A, QStringLiteral("#N/A")}};
    return texts.value(code);
}

class XlsReader
{
public:
    XlsReader(const QByteArray &stream, TextSink *sink)
        : m_stream(stream)
        , m_sink(*sink)
        , m_asides(sink->room())
    {}

    void read()
    {
        qint64 at = 0;
        while (at + 4 <= m_stream.size() && !m_sink.isFull()) {
            const quint16 type = BiffRecord::typeAt(m_stream, at);
            if (type == 0) // The rest of the last sector.
                break;
            BiffRecord record(m_stream, &at, isContinued(type));
            if (type == FilePass)
                return;
            take(record);
        }
        m_sink.endParagraph();
        m_sink.appendParagraphs(m_asides.text());
    }

private:
    bool isNew() const { return m_version >= biff8; }

    QString byteString(BiffRecord &record, int count)
    {
        return decodeDeclared(record.bytes(count), m_encoding);
    }
    /// The text of a record whose length stands before it in one or two bytes.
    QString string(BiffRecord &record, bool shortLength)
    {
        const int length = shortLength ? record.byte() : record.word();
        return isNew() ? record.unicode(length) : byteString(record, length);
    }

    void take(BiffRecord &record)
    {
        switch (record.type()) {
        case BeginOfFile:
            m_version = record.word();
            m_sink.endParagraph();
            m_row = -1;
            break;
        case CodePage:
            takeCodePage(record.word());
            break;
        case Date1904:
            m_from1904 = record.word() == 1;
            break;
        case BoundSheet:
            record.skip(6);
            m_sink.append(string(record, true));
            m_sink.endParagraph();
            break;
        case SharedStrings:
            takeStrings(record);
            break;
        case Format: {
            const int id = record.word();
            m_formats.insert(id, string(record, !isNew()));
            break;
        }
        case ExtendedFormat:
            record.skip(2);
            m_cellFormats.append(record.word());
            break;
        case TextObject:
        case Note:
        case Header:
        case Footer:
        case ChartText:
            takeAside(record);
            break;
        default:
            takeCell(record);
            break;
        }
    }

    void takeCodePage(int page)
    {
        m_encoding = page == 1200 ? QByteArray() : codePageName(page == 32769 ? 1252 : page);
    }

    void takeStrings(BiffRecord &record)
    {
        record.skip(4);
        const quint32 count = record.dword();
        for (quint32 i = 0; i < count && !record.atEnd() && m_strings.size() < maxStrings; ++i)
            m_strings.append(record.unicode(record.word()));
    }

    void startCell(BiffRecord &record)
    {
        const int row = record.word();
        if (row != m_row)
            m_sink.endParagraph();
        else
            m_sink.endCell();
        m_row = row;
        record.skip(2);
        m_format = m_cellFormats.value(record.word());
    }

    QString formatCode() const
    {
        return m_formats.contains(m_format) ? m_formats.value(m_format)
                                            : builtinNumberFormat(m_format);
    }
    void appendNumber(double value) { m_sink.append(shownNumber(value, formatCode(), m_from1904)); }
    void appendText(const QString &text) { m_sink.append(shownText(text, formatCode())); }

    void takeCell(BiffRecord &record)
    {
        switch (record.type()) {
        case LabelSst:
            startCell(record);
            appendText(m_strings.value(int(qMin<quint32>(record.dword(), maxStrings))));
            break;
        case Label:
        case RichString:
            startCell(record);
            appendText(string(record, false));
            break;
        case Number:
            startCell(record);
            appendNumber(record.number());
            break;
        case Rk:
            startCell(record);
            appendNumber(rkNumber(record.dword()));
            break;
        case MulRk:
            takeNumbers(record);
            break;
        case Formula:
            startCell(record);
            takeResult(record);
            break;
        case FormulaString:
            appendText(string(record, false));
            break;
        case BoolError: {
            startCell(record);
            const int value = record.byte();
            m_sink.append(record.byte() == 0 ? boolText(value != 0) : errorText(value));
            break;
        }
        default:
            break;
        }
    }

    static QString boolText(bool value)
    {
        return value ? QStringLiteral("TRUE") : QStringLiteral("FALSE");
    }

    void takeNumbers(BiffRecord &record)
    {
        const int row = record.word();
        if (row != m_row)
            m_sink.endParagraph();
        m_row = row;
        record.skip(2);
        while (record.left() >= 8) { // The last two bytes tell the last column.
            m_format = m_cellFormats.value(record.word());
            m_sink.endCell();
            appendNumber(rkNumber(record.dword()));
        }
    }

    void takeResult(BiffRecord &record)
    {
        const QByteArray bytes = record.bytes(8);
        if (bytes.size() < 8)
            return;
        const bool isNumber = bytes.at(6) != '\xFF' || bytes.at(7) != '\xFF';
        if (isNumber) {
            double value = 0;
            std::memcpy(&value, bytes.constData(), sizeof(value));
            appendNumber(value);
        } else if (bytes.at(0) == 1) {
            m_sink.append(boolText(bytes.at(2) != 0));
        } else if (bytes.at(0) == 2) {
            m_sink.append(errorText(static_cast<uchar>(bytes.at(2))));
        } // A text follows in a record of its own.
    }

    void takeAside(BiffRecord &record)
    {
        QString text;
        switch (record.type()) {
        case TextObject:
            text = boxText(record);
            break;
        case Note:
            text = noteText(record);
            break;
        case ChartText:
            record.skip(2);
            text = string(record, true);
            break;
        default:
            text = headerText(record);
            break;
        }
        m_asides.appendParagraphs(text);
    }

    /// The characters stand in the first continuation.
    QString boxText(BiffRecord &record)
    {
        record.skip(10);
        const int length = record.word();
        if (!isNew()) {
            record.skip(record.left());
            return byteString(record, length);
        }
        record.nextPart();
        const bool wide = (record.byte() & 1) != 0;
        return record.characters(length, wide);
    }

    QString noteText(BiffRecord &record)
    {
        record.skip(4);
        if (isNew()) {
            record.skip(4);
            return string(record, false); // Who wrote it; the text is in a box.
        }
        const int length = record.word();
        return byteString(record, qMin(length, record.left()));
    }

    QString headerText(BiffRecord &record)
    {
        if (record.left() == 0)
            return QString();
        return headerFooterText(string(record, !isNew()));
    }

    const QByteArray &m_stream;
    TextSink &m_sink;
    TextSink m_asides;
    QByteArray m_encoding;
    QStringList m_strings;
    QHash<int, QString> m_formats;
    QVector<int> m_cellFormats;
    int m_version = biff8;
    int m_row = -1;
    int m_format = 0;
    bool m_from1904 = false;
};

} // namespace

void readXls(const QByteArray &stream, TextSink *sink)
{
    XlsReader(stream, sink).read();
}

} // namespace search::text
