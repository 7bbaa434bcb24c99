#include "search/text/sheettext.h"

#include "search/text/numberformat.h"
#include "search/text/pagetext.h"
#include "search/text/textsink.h"
#include "search/text/ziparchive.h"

#include <QHash>
#include <QStringList>
#include <QVector>
#include <QXmlStreamReader>

namespace search::text {

namespace {

/// The text of one string item, without the reading aids above it.
QString readStringItem(QXmlStreamReader &xml)
{
    QString text;
    int depth = 1;
    bool inText = false;
    while (depth > 0 && !xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement()) {
            if (xml.name() == QLatin1String("rPh")) {
                xml.skipCurrentElement();
                continue;
            }
            ++depth;
            inText = xml.name() == QLatin1String("t");
        } else if (xml.isEndElement()) {
            --depth;
            inText = false;
        } else if (xml.isCharacters() && inText) {
            text += xml.text();
        }
    }
    return text;
}

QStringList readSharedStrings(const QByteArray &bytes)
{
    QStringList strings;
    QXmlStreamReader xml(bytes);
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement() && xml.name() == QLatin1String("si"))
            strings.append(readStringItem(xml));
    }
    return strings;
}

bool isHeaderFooter(const QStringRef &name)
{
    for (const char *const kind :
         {"oddHeader", "evenHeader", "firstHeader", "oddFooter", "evenFooter", "firstFooter"}) {
        if (name == QLatin1String(kind))
            return true;
    }
    return false;
}

/// The parts of a workbook that its cells refer to.
class Workbook
{
public:
    Workbook(ZipArchive &archive, TextSink *sink)
        : m_archive(archive)
        , m_sink(*sink)
    {}

    void read()
    {
        readSheetList(m_archive.read(QStringLiteral("xl/workbook.xml")));
        m_shared = readSharedStrings(m_archive.read(QStringLiteral("xl/sharedStrings.xml")));
        readStyles(m_archive.read(QStringLiteral("xl/styles.xml")));
        bool hasSheets = false;
        const QStringList names = m_archive.names();
        for (const QString &name : names) {
            const bool isSheet = name.startsWith(QLatin1String("xl/worksheets/")) ||
                                 name.startsWith(QLatin1String("xl/chartsheets/"));
            if (!isSheet || !name.endsWith(QLatin1String(".xml")) || m_sink.isFull())
                continue;
            hasSheets = true;
            readSheet(m_archive.read(name));
        }
        if (!hasSheets) // Where a sheet lies elsewhere, at least what it refers to.
            m_sink.appendParagraphs(m_shared.join(QLatin1Char('\n')));
    }

private:
    void readSheetList(const QByteArray &bytes)
    {
        QXmlStreamReader xml(bytes);
        while (!xml.atEnd()) {
            xml.readNext();
            if (!xml.isStartElement())
                continue;
            if (xml.name() == QLatin1String("sheet")) {
                m_sink.append(xml.attributes().value(QLatin1String("name")).toString());
                m_sink.endParagraph();
            } else if (xml.name() == QLatin1String("workbookPr")) {
                const QStringRef from1904 = xml.attributes().value(QLatin1String("date1904"));
                m_from1904 = from1904 == QLatin1String("1") || from1904 == QLatin1String("true");
            }
        }
    }

    void readStyles(const QByteArray &bytes)
    {
        QXmlStreamReader xml(bytes);
        bool inCells = false;
        while (!xml.atEnd()) {
            xml.readNext();
            const QXmlStreamAttributes attributes = xml.attributes();
            const int id = attributes.value(QLatin1String("numFmtId")).toInt();
            if (xml.name() == QLatin1String("cellXfs"))
                inCells = xml.isStartElement();
            else if (xml.isStartElement() && xml.name() == QLatin1String("numFmt"))
                m_formats.insert(id, attributes.value(QLatin1String("formatCode")).toString());
            else if (xml.isStartElement() && inCells && xml.name() == QLatin1String("xf"))
                m_cellFormats.append(id);
        }
    }

    QString formatCode() const
    {
        const int id = m_cellFormats.value(m_style);
        return m_formats.contains(id) ? m_formats.value(id) : builtinNumberFormat(id);
    }

    QString cellText(const QString &type, const QString &value) const
    {
        if (type == QLatin1String("s"))
            return shownText(m_shared.value(value.toInt()), formatCode());
        if (type == QLatin1String("b"))
            return value == QLatin1String("1") ? QStringLiteral("TRUE") : QStringLiteral("FALSE");
        bool isNumber = type.isEmpty() || type == QLatin1String("n");
        const double number = isNumber ? value.toDouble(&isNumber) : 0;
        return isNumber ? shownNumber(number, formatCode(), m_from1904) : value;
    }

    void readSheet(const QByteArray &bytes)
    {
        QXmlStreamReader xml(bytes);
        QString type;
        while (!xml.atEnd() && !m_sink.isFull()) {
            xml.readNext();
            const QStringRef name = xml.name();
            if (xml.isStartElement() && name == QLatin1String("c")) {
                type = xml.attributes().value(QLatin1String("t")).toString();
                m_style = xml.attributes().value(QLatin1String("s")).toInt();
            } else if (xml.isStartElement() && name == QLatin1String("v")) {
                m_sink.append(cellText(type, xml.readElementText()));
            } else if (xml.isStartElement() && name == QLatin1String("is")) {
                m_sink.append(readStringItem(xml));
                m_sink.endCell();
            } else if (xml.isStartElement() && isHeaderFooter(name)) {
                m_sink.appendParagraphs(headerFooterText(xml.readElementText()));
            } else if (xml.isEndElement() && name == QLatin1String("c")) {
                m_sink.endCell();
            } else if (xml.isEndElement() && name == QLatin1String("row")) {
                m_sink.endParagraph();
            }
        }
        m_sink.endParagraph();
    }

    ZipArchive &m_archive;
    TextSink &m_sink;
    QStringList m_shared;
    QHash<int, QString> m_formats;
    QVector<int> m_cellFormats;
    int m_style = 0;
    bool m_from1904 = false;
};

} // namespace

void readWorkbook(ZipArchive &archive, TextSink *sink)
{
    Workbook(archive, sink).read();
}

} // namespace search::text
