#pragma once

#include "ui/pages/scanresultspage/sortkeys.h"

#include <QSet>
#include <QString>
#include <QVector>

#include <memory>
#include <vector>

class QJsonArray;

namespace scanresults {

/// A found file as the table keeps it: what is shown, and the numbers that it is sorted by. Words
/// and folders that repeat share one text.
struct FoundRow
{
    QString fileId;
    QString name;
    QString folder; ///< The path up to the name; the whole path if `endsWithName` is false.
    QString size;   ///< As shown.
    QString type;
    QString category; ///< Key of FileTypeCategoryUtils.
    QString probability;
    QString deletionTime;
    QString source; ///< Raw word.
    QString sourceWord;
    QString label;
    QString reason;
    QString blockStart;
    qint64 sizeBytes = 0;
    SizeTableWidgetItem sizeKey; ///< Of the text of the size.
    DeletionTimeTableWidgetItem timeKey;
    RecoverabilityTableWidgetItem chanceKey;
    double contiguity = 0.0;
    int directory = 0; ///< Place in the chunk's directories.
    bool endsWithName = false;

    QString path() const { return endsWithName ? folder + QLatin1Char('/') + name : folder; }
    /// Whether its data can be expected to come back without a loss.
    bool isWhole() const;
};

/// Rows that came together. Nothing in it changes once it is read, so that any thread may look at
/// it for as long as it holds it.
struct RowChunk
{
    std::vector<FoundRow> rows;
    QVector<QString> directories; ///< Each once, in the order of their first file.
    QVector<int> files;           ///< By directory.
};
using RowChunkPointer = std::shared_ptr<const RowChunk>;

/// All rows by arrival, with the chunks that own them. Copying copies pointers.
struct RowSet
{
    std::vector<RowChunkPointer> chunks;
    std::vector<const FoundRow *> rows;
    std::vector<int> nodes; ///< By row: its directory in the tree.

    int count() const { return static_cast<int>(rows.size()); }
    const FoundRow &at(int arrival) const { return *rows[size_t(arrival)]; }
    /// `nodesOfDirectories` by the chunk's directories.
    void add(const RowChunkPointer &chunk, const QVector<int> &nodesOfDirectories);
};

/// Turns what the service sends into rows. One thread at a time.
class RowReader
{
public:
    /// Reads the files from the back and lets go of each one, so that rows and their source do not
    /// both stand in memory; `files` is empty afterwards.
    RowChunkPointer read(QJsonArray *files);

private:
    FoundRow rowOf(const ui::common::utils::ScanFile &file);
    const QString &shared(const QString &text);

    QSet<QString> m_texts;
};

} // namespace scanresults
