#pragma once

#include "search/names/bytefinder.h"

#include <QByteArray>
#include <QHash>
#include <QString>

#include <vector>

namespace search::names {

/// A part of an arena's bytes.
struct Span
{
    const char *begin;
    const char *end;

    int size() const { return int(end - begin); }
    QByteArray bytes() const { return QByteArray(begin, size()); }
};

/// The names and folders of an index, folded and in UTF-8, one after the other in memory; each
/// folder once. Rows stand newest first, equal times by descending id, as the index lists them.
/// Filled by one thread, then only read, by any number.
class NameArena
{
public:
    void reserve(int rows);
    void add(qint64 id, const QString &path, const QString &fileName, qint64 size,
             qint64 modifiedMs);
    /// Puts the rows in order; nothing is added any more.
    void finish();

    int rowCount() const { return int(m_ids.size()); }
    int folderCount() const { return int(m_folderStarts.size()) - 1; }
    qint64 id(int row) const { return m_ids[size_t(row)]; }
    qint64 size(int row) const { return m_sizes[size_t(row)]; }
    qint64 modifiedMs(int row) const { return m_times[size_t(row)]; }
    qint64 highestId() const { return m_highestId; }

    /// The last part of the path; where the index has another name for the file, that name follows
    /// a NUL. Spans of following rows lie behind each other with one NUL between them.
    Span name(int row) const { return span(m_names, m_nameStarts, row); }
    int folderOf(int row) const { return int(m_folderOf[size_t(row)]); }
    /// Without the last slash.
    Span folder(int folder) const { return span(m_folders, m_folderStarts, folder); }
    /// The row whose name holds the place; `row` is one at or before it.
    int rowAt(const char *place, int row) const;
    QByteArray path(int row) const;

    /// True if folding changed nothing but the case of ASCII letters: what is found in the folded
    /// texts of such a row is found by LIKE, and the other way round.
    bool isPlain(int row) const { return m_flags[size_t(row)] & plainFlag; }
    bool hasHan(int row) const { return m_flags[size_t(row)] & hanFlag; }

    const ByteCounts &byteCounts() const { return m_counts; }
    qint64 memoryBytes() const;

private:
    static constexpr quint8 plainFlag = 1;
    static constexpr quint8 hanFlag = 2;

    static Span span(const std::vector<char> &text, const std::vector<quint32> &starts, int i)
    {
        return {text.data() + starts[size_t(i)], text.data() + starts[size_t(i) + 1] - 1};
    }
    quint32 folderNumber(const QString &folder);

    std::vector<char> m_names;
    std::vector<quint32> m_nameStarts{0};
    std::vector<char> m_folders;
    std::vector<quint32> m_folderStarts{0};
    std::vector<bool> m_folderIsPlain;
    std::vector<quint32> m_folderOf;
    std::vector<qint64> m_ids;
    std::vector<qint64> m_sizes;
    std::vector<qint64> m_times; ///< Milliseconds since the epoch.
    std::vector<quint8> m_flags;
    ByteCounts m_counts{};
    qint64 m_highestId = 0;

    // While it is filled.
    QHash<QString, quint32> m_folderNumbers;
    QString m_lastFolder;
    quint32 m_lastFolderNumber = 0;
};

} // namespace search::names
