#include "recoveryd/vault/extvault.h"

#include "recoveryd/ext/extdirectory.h"
#include "vault/vaultrecord.h"

#include <QDebug>
#include <QHash>
#include <QSet>

#include <algorithm>
#include <map>

namespace services {
namespace recoveryd {

namespace {

constexpr int kMaxHomes = 4096;

/// A file of the file system, by its runs.
class ExtContent : public VaultContent
{
public:
    [[nodiscard]] static std::unique_ptr<ExtContent> open(const ExtVolume &ext, quint32 number,
                                                          QString *error)
    {
        auto content = std::make_unique<ExtContent>();
        ExtInode inode;
        if (!ExtInode::read(ext, number, &inode, error))
            return nullptr;
        if (!inode.isRegular() || inode.isEncrypted()) {
            *error = inode.isRegular() ? QStringLiteral("内容已由文件系统加密")
                                       : QStringLiteral("受保护的内容不是普通文件");
            return nullptr;
        }
        // A file longer than its whole file system is damage, and no disk would take it.
        if (!readBlockRuns(ext, inode, ext.superblock().blockCount, &content->m_runs, error))
            return nullptr;
        content->m_ext = ext;
        content->m_size = inode.size;
        return content;
    }

    qint64 size() const override { return m_size; }

    Ranges dataRanges() const override
    {
        const qint64 blockSize = m_ext.superblock().blockSize;
        Ranges ranges;
        for (const BlockRun &run : m_runs) {
            const qint64 start = run.logical * blockSize;
            ranges.append({start, qMin(run.count * blockSize, m_size - start)});
        }
        return ranges;
    }

    bool read(qint64 offset, char *to, qint64 length, QString *error) const override
    {
        const qint64 blockSize = m_ext.superblock().blockSize;
        const auto behind =
            std::upper_bound(m_runs.begin(), m_runs.end(), offset / blockSize,
                             [](qint64 block, const BlockRun &run) { return block < run.logical; });
        if (behind == m_runs.begin()) {
            *error = QStringLiteral("该处没有数据");
            return false;
        }
        const BlockRun &run = *std::prev(behind);
        const qint64 within = offset - run.logical * blockSize;
        return m_ext.volume().read(run.physical * blockSize + within, to, length, error);
    }

private:
    ExtVolume m_ext;
    qint64 m_size = 0;
    QVector<BlockRun> m_runs;
};

class ExtVault : public FoundVault
{
public:
    ExtVault(const vault::VaultLocation &location, const ExtVolume &ext, const ExtInode &dir,
             const ExtInode &meta)
        : FoundVault(location)
        , m_ext(ext)
        , m_dir(dir)
        , m_meta(meta)
    {}

    QJsonArray records(const Stopped &isStopped) const override
    {
        std::map<QByteArray, quint32> names; // in the order of their names
        const auto collect = [&](const QByteArray &name, quint32 inode) {
            if (vault::isRecordFileName(name))
                names.emplace(name, inode);
            return int(names.size()) < vault::kMaxRecords;
        };
        QString error;
        if (!visitEntries(m_ext, m_meta, collect, &error))
            qWarning() << "[ExtVault]" << location().vaultParentDir << error;
        QJsonArray records;
        qint64 text = 0;
        for (const auto &name : names) {
            if (text > vault::kMaxVaultText || isStopped())
                break;
            const QJsonObject record =
                vault::recordFrom(readRecord(name.second), QString::fromUtf8(name.first));
            if (record.isEmpty() ||
                !hasContent(record.value(QLatin1String("id")).toString().toUtf8()))
                continue;
            text += vault::textSize(record);
            records.append(record);
        }
        return records;
    }

    std::unique_ptr<VaultContent> open(const QString &id, QString *error) const override
    {
        const quint32 inode = vault::isVaultId(id) ? contents().value(id.toUtf8()) : 0;
        if (inode == 0) {
            *error = QStringLiteral("保护区中没有这个文件");
            return nullptr;
        }
        return ExtContent::open(m_ext, inode, error);
    }

private:
    /// Inodes of the contents by id.
    const QHash<QByteArray, quint32> &contents() const
    {
        if (m_isRead)
            return m_contents;
        m_isRead = true;
        const QByteArray suffix(vault::kContentSuffix);
        const auto collect = [&](const QByteArray &name, quint32 inode) {
            if (name.endsWith(suffix))
                m_contents.insert(name.left(name.size() - suffix.size()), inode);
            return m_contents.size() < vault::kMaxRecords;
        };
        QString error;
        if (!visitEntries(m_ext, m_dir, collect, &error))
            qWarning() << "[ExtVault]" << location().vaultParentDir << error;
        return m_contents;
    }

    bool hasContent(const QByteArray &id) const
    {
        ExtInode inode;
        const quint32 number = contents().value(id);
        return number != 0 && ExtInode::read(m_ext, number, &inode, nullptr) && inode.isRegular();
    }

    /// Empty if it cannot be read.
    QByteArray readRecord(quint32 number) const
    {
        ExtInode inode;
        if (!ExtInode::read(m_ext, number, &inode, nullptr) || inode.size > vault::kMaxRecordBytes)
            return QByteArray();
        QString error;
        const auto content = ExtContent::open(m_ext, number, &error);
        if (!content)
            return QByteArray();
        QByteArray bytes(int(content->size()), '\0');
        const Ranges ranges = content->dataRanges();
        for (const Range &range : ranges)
            if (!content->read(range.start, bytes.data() + range.start, range.length, &error))
                return QByteArray();
        return bytes;
    }

    ExtVolume m_ext;
    ExtInode m_dir;
    ExtInode m_meta;
    mutable QHash<QByteArray, quint32> m_contents;
    mutable bool m_isRead = false;
};

/// Looks for the vaults of one file system.
class Finder
{
public:
    Finder(const Device &device, const ExtVolume &ext)
        : m_device(device)
        , m_ext(ext)
    {}

    FoundVaults find(const FoundVault::Stopped &isStopped)
    {
        ExtInode root;
        ExtInode inode;
        if (!ExtInode::read(m_ext, kRootInode, &root, nullptr))
            return m_found;
        probe(root, QStringLiteral("/"), QString());
        if (enter(root, "root", &inode))
            probe(inode, QStringLiteral("/root"), QStringLiteral("root"));
        if (!enter(root, "home", &inode))
            return m_found;
        for (const auto &user : usersIn(inode)) {
            if (isStopped())
                break;
            const QString name = QString::fromUtf8(user.first);
            if (ExtInode::read(m_ext, user.second, &inode, nullptr))
                probe(inode, QStringLiteral("/home/") + name, name);
        }
        return m_found;
    }

private:
    bool enter(const ExtInode &directory, const QByteArray &name, ExtInode *entered) const
    {
        quint32 number = 0;
        return findInDirectory(m_ext, directory, name, &number, nullptr) && number != 0 &&
               ExtInode::read(m_ext, number, entered, nullptr) && entered->isDirectory();
    }

    std::map<QByteArray, quint32> usersIn(const ExtInode &homes) const
    {
        std::map<QByteArray, quint32> users;
        QString error;
        const auto collect = [&users](const QByteArray &name, quint32 number) {
            if (name != "." && name != "..")
                users.emplace(name, number);
            return users.size() < kMaxHomes;
        };
        if (!visitEntries(m_ext, homes, collect, &error))
            qWarning() << "[ExtVault]" << m_device.path << error;
        return users;
    }

    void probe(const ExtInode &parent, const QString &path, const QString &user)
    {
        ExtInode dir;
        ExtInode meta;
        if (m_seen.contains(parent.number) || !enter(parent, vault::kVaultDir, &dir) ||
            !enter(dir, vault::kMetaDir, &meta) || m_seen.contains(dir.number))
            return;
        m_seen << parent.number << dir.number;
        vault::VaultLocation location;
        location.vaultParentDir = m_device.path + QLatin1Char(':') + path;
        location.devicePath = m_device.path;
        location.userName = user;
        m_found.append(std::make_shared<ExtVault>(location, m_ext, dir, meta));
    }

    const Device &m_device;
    const ExtVolume &m_ext;
    QSet<quint32> m_seen; ///< Parents and vaults.
    FoundVaults m_found;
};

} // namespace

FoundVaults extVaultsOn(const Device &device, const FoundVault::Stopped &isStopped)
{
    ExtVolume ext;
    QString error;
    if (!device.fileSystem.isExt())
        return FoundVaults();
    if (!ext.open(device.volume, &error)) {
        qWarning() << "[ExtVault]" << device.path << error;
        return FoundVaults();
    }
    return Finder(device, ext).find(isStopped);
}

} // namespace recoveryd
} // namespace services
