#include "search/text/ziptext.h"

#include "search/text/htmltext.h"
#include "search/text/sheettext.h"
#include "search/text/textsink.h"
#include "search/text/xmltext.h"
#include "search/text/ziparchive.h"

#include <QHash>
#include <QRegularExpression>
#include <QUrl>
#include <QXmlStreamReader>

#include <algorithm>

namespace search::text {

namespace {

/// Members whose names match, "slide2" before "slide10".
QStringList matchingMembers(const ZipArchive &archive, const char *pattern)
{
    const QRegularExpression expression(QStringLiteral("^(?:%1)$").arg(QLatin1String(pattern)));
    QStringList names = archive.names().filter(expression);
    const auto number = [](const QString &name) {
        static const QRegularExpression digits(QStringLiteral("(\\d+)\\D*$"));
        return digits.match(name).captured(1).toInt();
    };
    std::stable_sort(names.begin(), names.end(), [number](const QString &a, const QString &b) {
        return number(a) < number(b);
    });
    return names;
}

void readMembers(ZipArchive &archive, const char *pattern, const XmlRules &rules, TextSink *sink)
{
    const QStringList names = matchingMembers(archive, pattern);
    for (const QString &name : names) {
        if (sink->isFull())
            return;
        readXml(archive.read(name), rules, sink);
    }
}

void readWordDocument(ZipArchive &archive, TextSink *sink)
{
    readMembers(archive, "word/document\\d*\\.xml", wordRules(), sink);
    readMembers(archive, "word/(?:header|footer)\\d+\\.xml", wordRules(), sink);
    readMembers(archive, "word/(?:footnotes|endnotes|comments)\\.xml", wordRules(), sink);
    readMembers(archive, "word/(?:charts/chart|diagrams/data)\\d+\\.xml", drawingRules(), sink);
}

void readPresentation(ZipArchive &archive, TextSink *sink)
{
    readMembers(archive, "ppt/slides/slide\\d+\\.xml", drawingRules(), sink);
    readMembers(archive, "ppt/notesSlides/notesSlide\\d+\\.xml", drawingRules(), sink);
    readMembers(archive, "ppt/(?:comments/.*|charts/chart\\d+|diagrams/data\\d+)\\.xml",
                drawingRules(), sink);
}

void readSpreadsheet(ZipArchive &archive, TextSink *sink)
{
    readWorkbook(archive, sink);
    readMembers(archive,
                "xl/(?:comments\\d*|threadedComments/.*|drawings/drawing\\d+|charts/chart\\d+)"
                "\\.xml",
                drawingRules(), sink);
}

void readOpenDocument(ZipArchive &archive, TextSink *sink)
{
    readMembers(archive, "content\\.xml", openDocumentRules(), sink);
    readMembers(archive, "styles\\.xml", openDocumentRules(), sink); // Headers and footers.
    readMembers(archive, "Object \\d+/content\\.xml", openDocumentRules(), sink);
}

/// The value of an attribute in the first element of that name.
QString firstAttribute(const QByteArray &bytes, const char *element, const char *attribute)
{
    QXmlStreamReader xml(bytes);
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement() && xml.name() == QLatin1String(element))
            return xml.attributes().value(QLatin1String(attribute)).toString();
    }
    return QString();
}

/// Chapters of a book in their order, and its title and people.
QStringList readBookIndex(const QByteArray &bytes, TextSink *sink)
{
    QHash<QString, QString> files;
    QStringList chapters;
    QXmlStreamReader xml(bytes);
    while (!xml.atEnd()) {
        xml.readNext();
        if (!xml.isStartElement())
            continue;
        const QXmlStreamAttributes attributes = xml.attributes();
        if (xml.name() == QLatin1String("title") || xml.name() == QLatin1String("creator")) {
            sink->append(xml.readElementText(QXmlStreamReader::IncludeChildElements));
            sink->endParagraph();
        } else if (xml.name() == QLatin1String("item")) {
            files.insert(attributes.value(QLatin1String("id")).toString(),
                         attributes.value(QLatin1String("href")).toString());
        } else if (xml.name() == QLatin1String("itemref")) {
            chapters.append(files.value(attributes.value(QLatin1String("idref")).toString()));
        }
    }
    return chapters;
}

void readBook(ZipArchive &archive, TextSink *sink)
{
    const QString index = firstAttribute(archive.read(QStringLiteral("META-INF/container.xml")),
                                         "rootfile", "full-path");
    const QUrl base = QUrl(QStringLiteral("book:/")).resolved(QUrl(index));
    const QStringList chapters = readBookIndex(archive.read(index), sink);
    for (const QString &chapter : chapters) {
        if (sink->isFull())
            return;
        const QString name = base.resolved(QUrl(chapter)).path(QUrl::FullyDecoded).mid(1);
        readHtml(archive.read(name), "UTF-8", sink);
    }
}

void readNames(const ZipArchive &archive, TextSink *sink)
{
    const QStringList names = archive.names();
    for (const QString &name : names) {
        if (sink->isFull())
            return;
        sink->append(name);
        sink->endParagraph();
    }
}

bool holds(const ZipArchive &archive, const char *prefix)
{
    const QStringList names = archive.names();
    return std::any_of(names.cbegin(), names.cend(), [prefix](const QString &name) {
        return name.startsWith(QLatin1String(prefix));
    });
}

} // namespace

void readZip(const QString &path, bool isDocument, TextSink *sink)
{
    ZipArchive archive(path);
    // Of a damaged directory the members before the damage are read.
    (void)archive.open();
    if (holds(archive, "word/"))
        readWordDocument(archive, sink);
    else if (holds(archive, "xl/"))
        readSpreadsheet(archive, sink);
    else if (holds(archive, "ppt/"))
        readPresentation(archive, sink);
    else if (holds(archive, "OFD.xml"))
        readMembers(archive, ".*Content\\.xml", pageRules(), sink);
    else if (holds(archive, "META-INF/container.xml"))
        readBook(archive, sink);
    else if (holds(archive, "content.xml"))
        readOpenDocument(archive, sink);
    else if (!isDocument)
        readNames(archive, sink);
}

} // namespace search::text
