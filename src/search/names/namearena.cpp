#include "search/names/namearena.h"

#include "search/query/folding.h"

#include <algorithm>
#include <numeric>

namespace search::names {
namespace {

/// Appends the folded text and a NUL; true if only the case of ASCII letters changed.
bool appendFolded(const QString &text, std::vector<char> *to)
{
    const QString folded = query::folded(text);
    const QByteArray bytes = folded.toUtf8();
    to->insert(to->end(), bytes.cbegin(), bytes.cend());
    to->push_back('\0');
    return folded == query::asciiLower(text);
}

template <typename Item>
void reorder(const std::vector<quint32> &order, std::vector<Item> *items)
{
    std::vector<Item> sorted;
    sorted.reserve(items->size());
    for (const quint32 row : order)
        sorted.push_back((*items)[row]);
    items->swap(sorted);
}

bool holdsHan(const QString &text)
{
    return std::any_of(text.cbegin(), text.cend(),
                       [](QChar c) { return c >= QChar(0x3400) && c <= QChar(0x9FFF); });
}

} // namespace

void NameArena::reserve(int rows)
{
    const size_t count = size_t(rows);
    m_nameStarts.reserve(count + 1);
    m_folderOf.reserve(count);
    m_ids.reserve(count);
    m_sizes.reserve(count);
    m_times.reserve(count);
    m_flags.reserve(count);
}

quint32 NameArena::folderNumber(const QString &folder)
{
    if (folder == m_lastFolder && !m_folderIsPlain.empty())
        return m_lastFolderNumber;
    auto it = m_folderNumbers.find(folder);
    if (it == m_folderNumbers.end()) {
        it = m_folderNumbers.insert(folder, quint32(m_folderIsPlain.size()));
        m_folderIsPlain.push_back(appendFolded(folder, &m_folders));
        m_folderStarts.push_back(quint32(m_folders.size()));
    }
    m_lastFolder = folder;
    m_lastFolderNumber = *it;
    return *it;
}

void NameArena::add(qint64 id, const QString &path, const QString &fileName, qint64 size,
                    qint64 modifiedMs)
{
    const int slash = path.lastIndexOf(QLatin1Char('/'));
    const QString base = path.mid(slash + 1);
    const quint32 folder = folderNumber(path.left(qMax(slash, 0)));
    bool plain = appendFolded(base, &m_names) && m_folderIsPlain[folder] && slash >= 0;
    if (base != fileName) {
        appendFolded(fileName, &m_names);
        plain = false;
    }
    m_nameStarts.push_back(quint32(m_names.size()));
    m_folderOf.push_back(folder);
    m_ids.push_back(id);
    m_sizes.push_back(size);
    m_times.push_back(modifiedMs);
    m_flags.push_back(quint8((plain ? plainFlag : 0) | (holdsHan(base) ? hanFlag : 0)));
    m_highestId = qMax(m_highestId, id);
}

void NameArena::finish()
{
    m_folderNumbers.clear();
    m_lastFolder.clear();
    std::vector<quint32> order(m_ids.size());
    std::iota(order.begin(), order.end(), 0u);
    std::sort(order.begin(), order.end(), [this](quint32 a, quint32 b) {
        return m_times[a] != m_times[b] ? m_times[a] > m_times[b] : m_ids[a] > m_ids[b];
    });
    std::vector<char> names;
    names.reserve(m_names.size());
    std::vector<quint32> starts{0};
    starts.reserve(m_nameStarts.size());
    for (const quint32 row : order) {
        names.insert(names.end(), m_names.begin() + m_nameStarts[row],
                     m_names.begin() + m_nameStarts[row + 1]);
        starts.push_back(quint32(names.size()));
    }
    m_names.swap(names);
    m_nameStarts.swap(starts);
    reorder(order, &m_folderOf);
    reorder(order, &m_ids);
    reorder(order, &m_sizes);
    reorder(order, &m_times);
    reorder(order, &m_flags);
    m_folders.shrink_to_fit();
    for (const char c : m_names)
        ++m_counts[static_cast<unsigned char>(c)];
}

int NameArena::rowAt(const char *place, int row) const
{
    const quint32 offset = quint32(place - m_names.data());
    // Hits are near each other or far away: double the step, then halve it.
    size_t low = size_t(row);
    size_t step = 1;
    while (low + step < m_nameStarts.size() && m_nameStarts[low + step] <= offset)
        step *= 2;
    const auto last =
        m_nameStarts.begin() + qptrdiff(std::min(low + step, m_nameStarts.size() - 1));
    return int(std::upper_bound(m_nameStarts.begin() + qptrdiff(low), last, offset) -
               m_nameStarts.begin()) -
           1;
}

QByteArray NameArena::path(int row) const
{
    const Span text = name(row);
    return folder(folderOf(row)).bytes() + '/' + QByteArray(text.begin);
}

qint64 NameArena::memoryBytes() const
{
    const auto bytes = [](const auto &items) {
        return qint64(items.capacity() * sizeof(items.front()));
    };
    return bytes(m_names) + bytes(m_nameStarts) + bytes(m_folders) + bytes(m_folderStarts) +
           bytes(m_folderOf) + bytes(m_ids) + bytes(m_sizes) + bytes(m_times) + bytes(m_flags);
}

} // namespace search::names
