#pragma once

#include <QElapsedTimer>
#include <QSet>
#include <QString>
#include <QStringList>

#include <atomic>

namespace search {

class ToolRunner;

/// All text between the tags of an XML document, with runs of white space made one blank. Malformed
/// XML gives what stands before the error.
QString textOfXml(const QString &xml);

/// A path as the unzip command takes it literally; it would expand wildcards in the file name.
QString unzipArchiveArgument(const QString &path);

/// An entry name as the unzip command takes it literally, neither as a pattern nor as an option.
QString unzipEntryArgument(const QString &entry);

struct ToolOutput;

/// One zip-based document, read through the unzip command. Used by one thread. The number of
/// commands and their time are bounded by the limits of the tools; what lies beyond is not read.
class ZipDocument
{
public:
    ZipDocument(ToolRunner &tools, const QString &path, const std::atomic_bool *cancel);

    /// The text of the XML entries in the given order, one line each, as far as they exist.
    QString extractZipXml(const QStringList &entries);

    /// Entries that start with one of the prefixes and end with one of the suffixes, in the order
    /// of the archive and regardless of case; an empty list allows everything.
    QStringList unzipEntriesByPatterns(const QStringList &prefixes, const QStringList &suffixes);

private:
    enum class Listing { Unread, Complete, Unknown, NoArchive };

    void readListing();
    void readListingLine(const QString &line);
    bool mayHoldText(const QString &entry) const;
    ToolOutput unzip(const QStringList &arguments);
    bool isExhausted() const;

    ToolRunner &m_tools;
    const QString m_archive;
    const std::atomic_bool *const m_cancel;
    Listing m_listing = Listing::Unread;
    QStringList m_names;
    QSet<QString> m_nameSet;
    QSet<QString> m_withoutText; ///< Entries that were read, or are empty by the listing.
    QElapsedTimer m_clock;       ///< From the first run on.
    int m_runs = 0;
};

} // namespace search
