#include "search/extract/zipxml.h"

#include "search/extract/oletext.h"
#include "search/extract/toolrunner.h"

#include <QXmlStreamReader>
#include <QtGlobal>

namespace search {

namespace {

/// From this many entries on, a listing that shows which of them exist is cheaper than asking for
/// each with a process of its own.
constexpr int listingPays = 3;

/// Before 5.15 the XML reader expands entities without a limit, and a few lines of them make
/// gigabytes. No office program declares any.
constexpr bool entitiesSwell = QT_VERSION < QT_VERSION_CHECK(5, 15, 0);

/// Exit code of unzip for a file that is no zip archive at all, whatever entry is asked for.
constexpr int unzipNoArchive = 9;

bool startsWithAny(const QString &name, const QStringList &prefixes)
{
    for (const QString &prefix : prefixes) {
        if (name.startsWith(prefix, Qt::CaseInsensitive))
            return true;
    }
    return prefixes.isEmpty();
}

bool endsWithAny(const QString &name, const QStringList &suffixes)
{
    for (const QString &suffix : suffixes) {
        if (name.endsWith(suffix, Qt::CaseInsensitive))
            return true;
    }
    return suffixes.isEmpty();
}

/// unzip's own test whether an archive name is a pattern: a wildcard without a backslash before it.
bool isWild(const QString &path)
{
    for (int i = 0; i < path.size(); ++i) {
        if (path.at(i) == QLatin1Char('\\'))
            ++i;
        else if (QStringLiteral("?*[").contains(path.at(i)))
            return true;
    }
    return false;
}

} // namespace

QString textOfXml(const QString &xml)
{
    QString text;
    QXmlStreamReader reader(xml);
    while (!reader.atEnd()) {
        reader.readNext();
        if (entitiesSwell && reader.isDTD() && reader.text().contains(QLatin1String("<!ENTITY")))
            break;
        if (reader.isCharacters() && !reader.isWhitespace())
            text.append(reader.text());
    }
    return text.simplified();
}

QString unzipArchiveArgument(const QString &path)
{
    if (!isWild(path))
        return path;
    // unzip expands the last part only and takes the folders literally. The brackets keep the name
    // a pattern, because in a name that is none the backslashes would count.
    const int nameStart = path.lastIndexOf(QLatin1Char('/')) + 1;
    QString argument = path.left(nameStart);
    for (int i = nameStart; i < path.size(); ++i) {
        const QChar c = path.at(i);
        if (c == QLatin1Char('\\'))
            argument += QStringLiteral("\\\\");
        else if (QStringLiteral("?*[").contains(c))
            argument += QLatin1Char('[') + c + QLatin1Char(']');
        else
            argument += c;
    }
    return argument;
}

QString unzipEntryArgument(const QString &entry)
{
    QString argument;
    for (const QChar c : entry) {
        if (QStringLiteral("\\?*[").contains(c) || (argument.isEmpty() && c == QLatin1Char('-')))
            argument += QLatin1Char('\\');
        argument += c;
    }
    return argument;
}

ZipDocument::ZipDocument(ToolRunner &tools, const QString &path, const std::atomic_bool *cancel)
    : m_tools(tools)
    , m_archive(unzipArchiveArgument(path))
    , m_cancel(cancel)
{}

QString ZipDocument::extractZipXml(const QStringList &entries)
{
    if (entries.size() >= listingPays)
        readListing();
    QString text;
    for (const QString &entry : entries) {
        if (isCancelled(m_cancel))
            return QString();
        if (!mayHoldText(entry))
            continue;
        if (isExhausted())
            break;
        const ToolOutput output =
            unzip({QStringLiteral("-p"), m_archive, unzipEntryArgument(entry)});
        const QString part = output.ended && output.exitCode == 0
                                 ? textOfXml(decodeToolText(output.bytes, output.cut))
                                 : QString();
        if (part.isEmpty()) {
            m_withoutText.insert(entry);
            continue;
        }
        text += part + QLatin1Char('\n');
        if (text.size() > maxTextChars)
            break;
    }
    return cutText(text);
}

QStringList ZipDocument::unzipEntriesByPatterns(const QStringList &prefixes,
                                                const QStringList &suffixes)
{
    readListing();
    QStringList found;
    for (const QString &name : m_names) {
        if (endsWithAny(name, suffixes) && startsWithAny(name, prefixes))
            found.append(name);
    }
    return found;
}

void ZipDocument::readListing()
{
    if (m_listing != Listing::Unread)
        return;
    const ToolOutput output = unzip({QStringLiteral("-l"), m_archive});
    m_listing = Listing::Unknown;
    if (output.ended && output.exitCode == unzipNoArchive)
        m_listing = Listing::NoArchive;
    if (!output.ended || output.exitCode != 0)
        return;
    if (!output.cut)
        m_listing = Listing::Complete;
    const QStringList lines = decodeToolText(output.bytes, output.cut).split(QLatin1Char('\n'));
    for (const QString &line : lines)
        readListingLine(line);
}

/// Length, date, time and name. A name with a blank is found by its last part only.
void ZipDocument::readListingLine(const QString &line)
{
    const QString row = line.trimmed();
    const QString name = row.mid(row.lastIndexOf(QLatin1Char(' ')) + 1).trimmed();
    if (name.isEmpty())
        return;
    m_names.append(name);
    m_nameSet.insert(name);
    const QStringList columns = row.simplified().split(QLatin1Char(' '));
    if (columns.size() == 4 && columns.first() == QLatin1String("0"))
        m_withoutText.insert(name);
}

bool ZipDocument::mayHoldText(const QString &entry) const
{
    if (m_withoutText.contains(entry))
        return false;
    switch (m_listing) {
    case Listing::Complete:
        return m_nameSet.contains(entry);
    case Listing::NoArchive:
        return false;
    case Listing::Unread:
    case Listing::Unknown:
        break;
    }
    return true;
}

ToolOutput ZipDocument::unzip(const QStringList &arguments)
{
    if (!m_clock.isValid())
        m_clock.start();
    ++m_runs;
    const ToolLimits &limits = m_tools.limits();
    RunLimits run = limits.unzip;
    run.runMs = static_cast<int>(qBound<qint64>(0, limits.zipMs - m_clock.elapsed(), run.runMs));
    return m_tools.run(QStringLiteral("unzip"), arguments, run, m_cancel);
}

bool ZipDocument::isExhausted() const
{
    const ToolLimits &limits = m_tools.limits();
    return m_runs >= limits.zipRuns || (m_clock.isValid() && m_clock.hasExpired(limits.zipMs));
}

} // namespace search
