#include "search/text/documenttext.h"

#include "search/text/doctext.h"
#include "search/text/encoding.h"
#include "search/text/htmltext.h"
#include "search/text/mailtext.h"
#include "search/text/olefile.h"
#include "search/text/ppttext.h"
#include "search/text/rtftext.h"
#include "search/text/subtitletext.h"
#include "search/text/textsink.h"
#include "search/text/xlstext.h"
#include "search/text/xmltext.h"
#include "search/text/ziptext.h"

#include <QFile>
#include <QFileInfo>

namespace search::text {

namespace {

/// Pictures and attachments make larger files than their text; what lies behind is not read.
constexpr qint64 maxFileBytes = 64 * 1024 * 1024;
constexpr int headBytes = 1024;

enum class Kind { Plain, Rtf, Zip, Ole, Sheet, Html, Mail, Mailbox, Subtitles, Xml, Unknown };

bool hasSuffix(const QString &suffix, const char *list)
{
    return QString::fromLatin1(list).split(QLatin1Char(' ')).contains(suffix);
}

/// Of these programs write other formats under the suffix of their own.
bool isOfficeSuffix(const QString &suffix)
{
    return hasSuffix(suffix, "doc docx xls xlsx ppt pptx wps et dps rtf html htm xhtml xht odt ods "
                             "odp odg ofd epub");
}

Kind kindOfOffice(const QByteArray &head)
{
    const QString start = decodeText(head, true).trimmed().toLower();
    if (start.startsWith(QLatin1String("<html")) ||
        start.startsWith(QLatin1String("<!doctype html")) || start.contains(QLatin1String("<html")))
        return Kind::Html;
    if (start.startsWith(QLatin1String("<?xml")) || start.startsWith(QLatin1String("<office")))
        return Kind::Xml;
    return start.startsWith(QLatin1String("mime-version:")) ? Kind::Mail : Kind::Unknown;
}

Kind kindOf(const QByteArray &head, const QString &suffix)
{
    if (isRtf(head))
        return Kind::Rtf;
    if (head.startsWith("PK\x03\x04") || head.startsWith("PK\x05\x06"))
        return Kind::Zip;
    if (head.startsWith("\xD0\xCF\x11\xE0"))
        return Kind::Ole;
    if (head.startsWith("\x09\x08"))
        return Kind::Sheet;
    if (head.startsWith("%PDF"))
        return Kind::Unknown;
    if (suffix == QLatin1String("mbox"))
        return Kind::Mailbox;
    if (suffix == QLatin1String("eml"))
        return head.startsWith("From ") ? Kind::Mailbox : Kind::Mail;
    if (suffix == QLatin1String("srt"))
        return Kind::Subtitles;
    if (!isOfficeSuffix(suffix))
        return Kind::Plain;
    const Kind kind = kindOfOffice(head);
    if (kind != Kind::Unknown)
        return kind;
    return hasSuffix(suffix, "html htm xhtml xht") ? Kind::Html : Kind::Plain;
}

void readOle(const QString &path, TextSink *sink)
{
    OleFile ole(path);
    if (!ole.open())
        return;
    const QString workbook = QStringLiteral("Workbook");
    const QString book = QStringLiteral("Book");
    const QString slides = QStringLiteral("PowerPoint Document");
    if (ole.contains(QStringLiteral("WordDocument")))
        readDoc(ole, sink);
    else if (ole.contains(workbook) || ole.contains(book))
        readXls(ole.read(ole.contains(workbook) ? workbook : book, maxFileBytes), sink);
    else if (ole.contains(slides))
        readPpt(ole.read(slides, maxFileBytes), ole.read(QStringLiteral("Current User"), headBytes),
                sink);
}

void readFile(Kind kind, QFile *file, const QString &suffix, TextSink *sink)

{
    const QString path = file->fileName();
    switch (kind) {
    case Kind::Rtf:
        readRtf(file->read(maxFileBytes), sink);
        break;
    case Kind::Zip:
        readZip(path, isOfficeSuffix(suffix), sink);
        break;
    case Kind::Ole:
        readOle(path, sink);
        break;
    case Kind::Sheet:
        readXls(file->read(maxFileBytes), sink);
        break;
    case Kind::Html:
        readHtml(file->read(maxFileBytes), QByteArray(), sink);
        break;
    case Kind::Xml:
        readOfficeXml(file->read(maxFileBytes), sink);
        break;
    case Kind::Mail:
        readMail(file->read(maxFileBytes), sink);
        break;
    case Kind::Mailbox:
        readMailbox(file->read(maxFileBytes), sink);
        break;
    case Kind::Subtitles:
        readSubtitles(file->read(maxFileBytes), sink);
        break;
    case Kind::Plain:
    case Kind::Unknown:
        break;
    }
}

DocumentText readPlain(QFile *file, int maxBytes, int maxChars)
{
    const QByteArray data = file->read(qMax(0, maxBytes));
    const bool cut = !file->atEnd();
    const QString text = decodeText(data, cut);
    return {text.left(maxChars), !text.isEmpty() && (cut || text.size() > maxChars)};
}

} // namespace

DocumentText readDocument(const QString &path, int maxPlainBytes, int maxChars)
{
    const QFileInfo info(path);
    QFile file(path);
    // Pipes and devices would block.
    if (!info.isFile() || !file.open(QIODevice::ReadOnly))
        return DocumentText();
    const QString suffix = info.suffix().toLower();
    const Kind kind = kindOf(file.peek(headBytes), suffix);
    if (kind == Kind::Plain)
        return readPlain(&file, maxPlainBytes, maxChars);
    TextSink sink(maxChars);
    readFile(kind, &file, suffix, &sink);
    return {sink.text(), sink.isFull()};
}

} // namespace search::text
