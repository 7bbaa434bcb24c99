#include "recoveryd/session/resultlog.h"

#include <QJsonDocument>

namespace services::recoveryd {

namespace {

// What a record begins with.
enum Kind : quint8 {
    FileRecord = 'F',
    FolderRecord = 'N',
    DamageRecord = 'D',
    DropRecord = 'X',
    CheckpointRecord = 'C'
};

// Beyond these the caches begin again; hostile disks may name a new folder for each file.
constexpr int kMaxKnownFolders = 500000;
constexpr int kMaxReadFolders = 10000;
constexpr quint64 kMaxNumber = 100000000;

QByteArray recordOf(Kind kind, quint64 number)
{
    PackedWriter writer;
    writer.byte(kind);
    writer.number(number);
    return writer.bytes();
}

} // namespace

bool ResultLog::openForReading(const QString &path, QString *error)
{
    return m_log.openForReading(path, error) && refresh(error);
}

bool ResultLog::openForAppending(const QString &path, QString *error)
{
    return m_log.openForAppending(path, error) && refresh(error);
}

bool ResultLog::refresh(QString *error)
{
    return m_log.scan([this](qint64 place, const QByteArray &record) { take(place, record); },
                      error);
}

ResultLog::Entry *ResultLog::entryOf(quint64 number, bool mayMake)
{
    if (mayMake && number == m_index.size() + 1 && number <= kMaxNumber)
        m_index.emplace_back();
    return number >= 1 && number <= m_index.size() ? &m_index[size_t(number - 1)] : nullptr;
}

void ResultLog::take(qint64 place, const QByteArray &record)
{
    PackedReader reader(record);
    const quint8 kind = reader.byte();
    if (kind == CheckpointRecord) {
        m_checkpoint = QJsonDocument::fromJson(record.mid(1)).object();
        return;
    }
    if (kind == FolderRecord) {
        m_folders.push_back(place);
        return;
    }
    Entry *const entry = entryOf(reader.number(), kind == FileRecord);
    if (!entry || !reader.isGood())
        return;
    if (kind == FileRecord)
        *entry = {place, 0};
    else if (kind == DamageRecord)
        entry->damage = place;
    else if (kind == DropRecord && entry->file != 0) {
        entry->file = 0;
        ++m_dropped;
        m_numbers.clear();
    }
}

int ResultLog::numberAt(int row) const
{
    if (row < 0 || row >= count())
        return 0;
    if (m_dropped == 0)
        return row + 1;
    if (int(m_numbers.size()) != count()) {
        m_numbers.clear();
        for (std::size_t i = 0; i < m_index.size(); ++i)
            if (m_index[i].file != 0)
                m_numbers.push_back(int(i) + 1);
    }
    return m_numbers[size_t(row)];
}

bool ResultLog::readRow(int row, ResultRow *to) const
{
    return read(numberAt(row), to);
}

bool ResultLog::read(int number, ResultRow *to) const
{
    if (number < 1 || number > int(m_index.size()))
        return false;
    const Entry &entry = m_index[size_t(number - 1)];
    if (entry.file == 0)
        return false;
    *to = ResultRow();
    PackedReader reader(m_log.read(entry.file));
    if (reader.byte() != FileRecord || reader.number() != quint64(number))
        return false;
    to->number = number;
    to->finding.folder = folder(reader.number());
    if (!decode(reader, &to->damage) || !decode(reader, &to->finding))
        return false;
    if (entry.damage != 0) {
        PackedReader correction(m_log.read(entry.damage));
        correction.byte();
        correction.number();
        return decode(correction, &to->damage);
    }
    return true;
}

quint64 ResultLog::folderNumber(const QByteArray &folder)
{
    if (folder.isEmpty())
        return 0;
    const auto known = m_knownFolders.constFind(folder);
    if (known != m_knownFolders.constEnd())
        return *known;
    if (m_knownFolders.size() >= kMaxKnownFolders)
        m_knownFolders.clear();
    PackedWriter writer;
    writer.byte(FolderRecord);
    writer.text(folder);
    m_folders.push_back(m_log.append(writer.bytes()));
    m_knownFolders.insert(folder, m_folders.size());
    return m_folders.size();
}

QByteArray ResultLog::folder(quint64 number) const
{
    if (number == 0 || number > m_folders.size())
        return QByteArray();
    const auto known = m_readFolders.constFind(number);
    if (known != m_readFolders.constEnd())
        return *known;
    PackedReader reader(m_log.read(m_folders[size_t(number - 1)]));
    reader.byte();
    const QByteArray folder = reader.text();
    if (m_readFolders.size() >= kMaxReadFolders)
        m_readFolders.clear();
    m_readFolders.insert(number, folder);
    return folder;
}

void ResultLog::appendFile(int number, const Finding &finding, const Damage &damage)
{
    const quint64 folder = folderNumber(finding.folder);
    PackedWriter writer;
    writer.byte(FileRecord);
    writer.number(quint64(number));
    writer.number(folder);
    encode(damage, &writer);
    encode(finding, &writer);
    m_index[size_t(number - 1)] = {m_log.append(writer.bytes()), 0};
}

int ResultLog::append(const Finding &finding, const Damage &damage)
{
    m_index.emplace_back();
    m_numbers.clear();
    appendFile(lastNumber(), finding, damage);
    return lastNumber();
}

void ResultLog::replace(int number, const Finding &finding, const Damage &damage)
{
    appendFile(number, finding, damage);
}

void ResultLog::setDamage(int number, const Damage &damage)
{
    PackedWriter writer;
    writer.byte(DamageRecord);
    writer.number(quint64(number));
    encode(damage, &writer);
    m_index[size_t(number - 1)].damage = m_log.append(writer.bytes());
}

void ResultLog::drop(int number)
{
    const QByteArray record = recordOf(DropRecord, quint64(number));
    m_log.append(record);
    take(0, record);
}

void ResultLog::setCheckpoint(const QJsonObject &checkpoint)
{
    m_checkpoint = checkpoint;
    m_log.append(char(CheckpointRecord) + QJsonDocument(checkpoint).toJson(QJsonDocument::Compact));
}

} // namespace services::recoveryd
