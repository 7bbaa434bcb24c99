#include "search/text/mailtext.h"

#include "search/text/encoding.h"
#include "search/text/htmltext.h"
#include "search/text/textsink.h"

#include <QHash>
#include <QRegularExpression>
#include <QString>

#include <utility>

namespace search::text {

namespace {

constexpr int maxNesting = 8;
constexpr int maxParts = 200;

/// One message or one part of it.
struct Part
{
    QHash<QByteArray, QByteArray> headers; ///< Names in lower case, values unfolded.
    QByteArray body;
};

QByteArray decodeQuotedPrintable(const QByteArray &bytes, bool inHeader)
{
    QByteArray result;
    for (int i = 0; i < bytes.size(); ++i) {
        const char c = bytes.at(i);
        if (c == '_' && inHeader) {
            result.append(' ');
        } else if (c != '=') {
            result.append(c);
        } else if (i + 1 < bytes.size() && (bytes.at(i + 1) == '\n' || bytes.at(i + 1) == '\r')) {
            i += bytes.mid(i + 1, 2) == "\r\n" ? 2 : 1;
        } else {
            bool ok = false;
            const int value = bytes.mid(i + 1, 2).toInt(&ok, 16);
            result.append(ok ? char(value) : c);
            i += ok ? 2 : 0;
        }
    }
    return result;
}

Part parsePart(const QByteArray &bytes)
{
    Part part;
    int at = 0;
    QByteArray name;
    while (at < bytes.size()) {
        int end = bytes.indexOf('\n', at);
        end = end < 0 ? bytes.size() : end;
        QByteArray line = bytes.mid(at, end - at);
        at = end + 1;
        if (line.endsWith('\r'))
            line.chop(1);
        if (line.isEmpty())
            break;
        const bool folded = line.startsWith(' ') || line.startsWith('\t');
        const int colon = line.indexOf(':');
        if (folded && !name.isEmpty()) {
            part.headers[name] += ' ' + line.trimmed();
        } else if (colon > 0) {
            name = line.left(colon).trimmed().toLower();
            if (!part.headers.contains(name))
                part.headers.insert(name, line.mid(colon + 1).trimmed());
        }
    }
    part.body = bytes.mid(at);
    return part;
}

/// A header with its encoded words. The bytes of adjoining words of one encoding are decoded
/// together, because senders part characters between them.
QString headerText(const QByteArray &value)
{
    static const QRegularExpression word(
        QStringLiteral("=\\?([^?*]+)(?:\\*[^?]*)?\\?([bBqQ])\\?([^?]*)\\?="));
    const QString raw = QString::fromLatin1(value);
    QString text;
    QByteArray pending;
    QByteArray encoding;
    int at = 0;
    auto matches = word.globalMatch(raw);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        const QString between = raw.mid(at, match.capturedStart() - at);
        const QByteArray charset = match.captured(1).toLatin1();
        if (!between.trimmed().isEmpty() || charset != encoding) {
            text += pending.isEmpty() ? QString() : decodeDeclared(pending, encoding);
            pending.clear();
            text += between.trimmed().isEmpty() ? QString() : decodeText(between.toLatin1());
        }
        encoding = charset;
        const QByteArray content = match.captured(3).toLatin1();
        pending += match.captured(2).toLower() == QLatin1String("b")
                       ? QByteArray::fromBase64(content)
                       : decodeQuotedPrintable(content, true);
        at = match.capturedEnd();
    }
    text += pending.isEmpty() ? QString() : decodeDeclared(pending, encoding);
    return text + decodeText(value.mid(at));
}

/// A parameter of a header such as charset or filename, also in pieces and with an encoding.
QString parameter(const QByteArray &header, const char *name)
{
    const QRegularExpression pattern(
        QStringLiteral("[;\\s]%1(\\*?)(\\d*)(\\*?)\\s*=\\s*(?:\"([^\"]*)\"|([^;\\s]*))")
            .arg(QLatin1String(name)),
        QRegularExpression::CaseInsensitiveOption);
    QByteArray value;
    bool encoded = false;
    auto matches = pattern.globalMatch(QString::fromLatin1(header));
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        value += (match.captured(4) + match.captured(5)).toLatin1();
        const bool inPieces = !match.captured(2).isEmpty();
        encoded =
            encoded || !match.captured(3).isEmpty() || (!match.captured(1).isEmpty() && !inPieces);
        if (!inPieces)
            break;
    }
    if (!encoded)
        return headerText(value);
    const int first = value.indexOf('\'');
    const int second = value.indexOf('\'', first + 1);
    const QByteArray bytes = QByteArray::fromPercentEncoding(value.mid(second + 1));
    return decodeDeclared(bytes, first > 0 && second > first ? value.left(first) : QByteArray());
}

QByteArray decodedBody(const Part &part)
{
    const QByteArray transfer = part.headers.value("content-transfer-encoding").toLower();
    if (transfer.contains("base64"))
        return QByteArray::fromBase64(part.body);
    return transfer.contains("quoted") ? decodeQuotedPrintable(part.body, false) : part.body;
}

QList<QByteArray> splitParts(const QByteArray &body, const QByteArray &boundary)
{
    QList<QByteArray> parts;
    const QByteArray mark = "--" + boundary;
    int at = body.indexOf(mark);
    while (at >= 0 && parts.size() < maxParts) {
        const int start = body.indexOf('\n', at);
        if (start < 0 || body.mid(at + mark.size(), 2) == "--")
            break;
        const int next = body.indexOf('\n' + mark, start);
        parts.append(body.mid(start + 1, next < 0 ? -1 : next - start));
        at = next < 0 ? -1 : next + 1;
    }
    return parts;
}

int lettersOf(const QString &text)
{
    int count = 0;
    for (const QChar c : text)
        count += c.isLetterOrNumber() ? 1 : 0;
    return count;
}

void appendText(const QString &text, TextSink *sink)
{
    for (const QString &line : text.split(QLatin1Char('\n'))) {
        sink->append(line);
        sink->endParagraph();
    }
}

void readPart(const Part &part, int nesting, TextSink *sink);

void readHeaders(const Part &part, TextSink *sink)
{
    for (const char *const name : {"subject", "from", "to", "cc", "date"})
        appendText(headerText(part.headers.value(name)), sink);
}

/// Of several forms of one text the one that says most: senders put "see the other form" in one.
void readAlternatives(const QList<QByteArray> &forms, int nesting, TextSink *sink)
{
    QString best;
    for (const QByteArray &form : forms) {
        TextSink own(sink->room());
        readPart(parsePart(form), nesting, &own);
        if (lettersOf(own.text()) > lettersOf(best))
            best = own.text();
    }
    appendText(best, sink);
}

void readPart(const Part &part, int nesting, TextSink *sink)
{
    if (nesting > maxNesting || sink->isFull())
        return;
    const QByteArray type = part.headers.value("content-type", "text/plain");
    const QByteArray kind = type.split(';').constFirst().trimmed().toLower();
    const QByteArray disposition = part.headers.value("content-disposition");
    QString name = parameter(';' + disposition, "filename");
    if (name.isEmpty())
        name = parameter(';' + type, "name");
    appendText(name, sink);
    if (kind.startsWith("multipart/")) {
        const QList<QByteArray> parts =
            splitParts(part.body, parameter(';' + type, "boundary").toLatin1());
        if (kind == "multipart/alternative")
            readAlternatives(parts, nesting + 1, sink);
        else
            for (const QByteArray &inner : parts)
                readPart(parsePart(inner), nesting + 1, sink);
    } else if (kind == "message/rfc822") {
        const Part inner = parsePart(decodedBody(part));
        readHeaders(inner, sink);
        readPart(inner, nesting + 1, sink);
    } else if (kind == "text/html") {
        readHtml(decodedBody(part), parameter(';' + type, "charset").toLatin1(), sink);
    } else if (kind.startsWith("text/")) {
        appendText(decodeDeclared(decodedBody(part), parameter(';' + type, "charset").toLatin1()),
                   sink);
    }
}

} // namespace

void readMail(const QByteArray &bytes, TextSink *sink)
{
    const Part message = parsePart(bytes);
    readHeaders(message, sink);
    readPart(message, 0, sink);
}

void readMailbox(const QByteArray &bytes, TextSink *sink)
{
    int at = bytes.startsWith("From ") ? bytes.indexOf('\n') + 1 : 0;
    while (at < bytes.size() && !sink->isFull()) {
        const int next = bytes.indexOf("\nFrom ", at);
        readMail(bytes.mid(at, next < 0 ? -1 : next - at), sink);
        sink->endParagraph();
        const int lineEnd = next < 0 ? -1 : bytes.indexOf('\n', next + 1);
        at = lineEnd < 0 ? bytes.size() : lineEnd + 1;
    }
}

} // namespace search::text
