#pragma once

#include "recoveryd/ext/undelete/blockmap.h"
#include "recoveryd/ext/undelete/inodehistory.h"
#include "recoveryd/ext/undelete/namebook.h"
#include "recoveryd/scan/scanner.h"

#include <functional>
#include <unordered_map>
#include <unordered_set>

namespace services::recoveryd::ext {

/// Where a file was, or is.
struct Place
{
    QByteArray name;
    QByteArray folder;
    Finding::Folder knowledge = Finding::Folder::Unknown;
};

/// What is known of a file when its name is asked for.
struct NameQuestion
{
    quint32 number = 0;
    quint8 type = 0;
    Order from = kAnyTime;
    Order to = kNow;
    int links = 1;
    bool isCurrent = false;
};

NameQuestion questionOf(const Life &life, int links);

/// Finds paths in the names that a NameBook has: which of an inode's names fell into its life, and
/// which directory each belongs to. One thread.
class Tree
{
public:
    /// Makes the names and the parent of a directory known that the volume has now.
    using Loader = std::function<void(quint32 number)>;

    Tree(const NameBook &names, const InodeHistory &inodes)
        : m_names(names)
        , m_inodes(inodes)
    {}

    void setLoader(const Loader &loader) { m_loader = loader; }
    /// A directory's checksums start with this value.
    void addSeed(quint32 seed, quint32 number) { m_bySeed.emplace(seed, number); }
    /// A directory had these blocks in that time.
    void addBlocks(quint32 number, const BlockMap &map, Order from, Order to);
    /// Names in the directory are ciphertext.
    void addEncrypted(quint32 number) { m_encrypted.insert(number); }
    /// To be called when more was added to the book or here.
    void forget();

    /// Up to `links` places of the file, the likeliest first; one without a name if none is known.
    QVector<Place> placesOf(const NameQuestion &question);
    /// Reports the file once for each of its places. False to end.
    [[nodiscard]] bool reportAt(const QVector<Place> &places, const Finding &finding,
                                ScanObserver &observer) const;

private:
    struct Folder
    {
        QByteArray path;
        Finding::Folder knowledge = Finding::Folder::Unknown;
    };
    struct BlockUse
    {
        qint64 block = 0;
        qint64 count = 0;
        quint32 number = 0;
        Order from = kAnyTime;
        Order to = kNow;
    };

    std::vector<int> choose(const NameQuestion &question, const QVector<quint32> &parents);
    quint32 directoryOf(const NameBook::Name &name);
    quint32 directoryOfBlock(qint64 block, Order order);
    Folder folderOf(quint32 number, Order order, int depth);
    QVector<quint32> parentsOf(quint32 number) const;
    QByteArray shownName(const NameBook::Name &name, quint32 directory) const;
    void load(quint32 number);

    const NameBook &m_names;
    const InodeHistory &m_inodes;
    Loader m_loader;
    std::unordered_map<quint32, quint32> m_bySeed;
    std::vector<BlockUse> m_uses;
    bool m_areUsesSorted = true;
    qint64 m_longestUse = 0;
    std::unordered_set<quint32> m_encrypted;
    std::unordered_set<quint32> m_loaded;
    std::unordered_map<quint64, Folder> m_folders; ///< By number and life.
};

} // namespace services::recoveryd::ext
