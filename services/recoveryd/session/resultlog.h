#pragma once

#include "recoveryd/scan/foundfile.h"
#include "recoveryd/session/findingcodec.h"
#include "recoveryd/session/recordlog.h"

#include <QHash>
#include <QJsonObject>

#include <vector>

namespace services::recoveryd {

/// A file of a session with the facts about it.
struct ResultRow
{
    int number = 0; ///< Within the session, from 1; never given to another file.
    Finding finding;
    Damage damage;

    FoundFile described() const { return describe(finding, number, damage); }
};

/// The files of one session on disk, as they are found, and how far the scan has got. In memory
/// there are 16 bytes a file; everything else is read back when it is needed. One thread an
/// instance; readers may follow a writer in other threads.
class ResultLog
{
public:
    [[nodiscard]] bool openForReading(const QString &path, QString *error);
    /// Goes on behind what is there, from which a torn end is cut off.
    [[nodiscard]] bool openForAppending(const QString &path, QString *error);
    bool isOpen() const { return m_log.isOpen(); }
    /// Takes in what a writer has appended since.
    [[nodiscard]] bool refresh(QString *error);

    /// Files that are in the list; dropped ones are not.
    int count() const { return int(m_index.size()) - m_dropped; }
    /// The greatest number given.
    int lastNumber() const { return int(m_index.size()); }
    /// The `row`-th file of the list, from 0.
    [[nodiscard]] bool readRow(int row, ResultRow *to) const;
    /// False for a number that was never given or was dropped.
    [[nodiscard]] bool read(int number, ResultRow *to) const;

    /// Adds a file; its number.
    int append(const Finding &finding, const Damage &damage);
    /// Replaces what is known about a file.
    void replace(int number, const Finding &finding, const Damage &damage);
    void setDamage(int number, const Damage &damage);
    void drop(int number);
    /// How far the scan has got, in words of the scan's own; the last one counts.
    void setCheckpoint(const QJsonObject &checkpoint);
    QJsonObject checkpoint() const { return m_checkpoint; }
    [[nodiscard]] bool flush(bool toMedium, QString *error) { return m_log.flush(toMedium, error); }

private:
    struct Entry
    {
        qint64 file = 0;   ///< Place of the record; 0 for a dropped file.
        qint64 damage = 0; ///< Of the record that corrects the damage; 0 if there is none.
    };

    void take(qint64 place, const QByteArray &record);
    Entry *entryOf(quint64 number, bool mayMake);
    quint64 folderNumber(const QByteArray &folder);
    QByteArray folder(quint64 number) const;
    int numberAt(int row) const;
    void appendFile(int number, const Finding &finding, const Damage &damage);

    RecordLog m_log;
    std::vector<Entry> m_index;
    std::vector<qint64> m_folders;             ///< Places of the folder records.
    QHash<QByteArray, quint64> m_knownFolders; ///< Of a writer.
    mutable QHash<quint64, QByteArray> m_readFolders;
    mutable std::vector<int> m_numbers; ///< By row; only if files were dropped.
    int m_dropped = 0;
    QJsonObject m_checkpoint;
};

} // namespace services::recoveryd
