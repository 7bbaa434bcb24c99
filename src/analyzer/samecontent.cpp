#include "analyzer/samecontent.h"

#include "analyzer/readablefile.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <numeric>
#include <utility>

namespace {

/// Files of one comparison that stay open; beyond them each is opened for every block, so that no
/// crowd of copies uses up the descriptors.
constexpr std::size_t kOpenFiles = 32;

} // namespace

SameContent::SameContent(std::vector<const File *> files, std::function<bool()> shouldStop)
    : m_files(std::move(files))
    , m_shouldStop(std::move(shouldStop))
    , m_open(m_files.size())
    , m_blockSize(0)
    , m_hash(QCryptographicHash::Md5)
{
    for (const File *file : m_files)
        m_blockSize = std::max(m_blockSize, ReadableFile::blockSizeFor(file->identity.size));
    m_first.reset(new char[size_t(m_blockSize)]);
    m_other.reset(new char[size_t(m_blockSize)]);
}

SameContent::~SameContent() = default;

std::vector<SameContent::Set> SameContent::sets()
{
    std::vector<int> files(m_files.size());
    std::iota(files.begin(), files.end(), 0);
    std::vector<Candidates> all{{files, true}};
    for (qint64 offset = 0; !all.empty() && !m_shouldStop(); offset += m_blockSize)
        all = compareBlock(offset, all);
    return std::move(m_sets);
}

std::vector<SameContent::Candidates> SameContent::compareBlock(qint64 offset,
                                                               const std::vector<Candidates> &all)
{
    std::vector<Candidates> next;
    for (const Candidates &candidates : all) {
        std::vector<int> rest = candidates.files;
        // Those that leave the set of the hashed file need a hash of their own.
        bool isHashed = candidates.isHashed;
        while (rest.size() > 1 && !m_shouldStop()) {
            qint64 length = 0;
            const Candidates equal{takeEqual(offset, &rest, &length), isHashed};
            isHashed = false;
            if (equal.files.size() < 2)
                continue;
            if (equal.isHashed)
                m_hash.addData(m_first.get(), int(length));
            if (length == m_blockSize)
                next.push_back(equal);
            else
                finish(equal);
        }
        for (const int file : rest)
            m_open[size_t(file)].reset();
    }
    return next;
}

std::vector<int> SameContent::takeEqual(qint64 offset, std::vector<int> *rest, qint64 *length)
{
    std::vector<int> equal;
    std::vector<int> different;
    *length = -1;
    for (const int file : *rest) {
        char *buffer = equal.empty() ? m_first.get() : m_other.get();
        const qint64 got = m_shouldStop() ? -1 : readBlock(file, offset, buffer);
        if (got < 0) {
            m_open[size_t(file)].reset();
        } else if (equal.empty()) {
            equal.push_back(file);
            *length = got;
        } else if (got == *length && std::memcmp(m_first.get(), buffer, size_t(got)) == 0) {
            equal.push_back(file);
        } else {
            different.push_back(file);
        }
    }
    *rest = different;
    if (equal.size() == 1)
        m_open[size_t(equal.front())].reset();
    return equal;
}

qint64 SameContent::readBlock(int file, qint64 offset, char *buffer)
{
    std::unique_ptr<ReadableFile> &open = m_open[size_t(file)];
    if (!open)
        open.reset(new ReadableFile(m_files[size_t(file)]->path, POSIX_FADV_SEQUENTIAL));
    qint64 length = open->isReadable() ? open->read(buffer, m_blockSize, offset) : -1;
    if (m_files.size() > kOpenFiles) {
        // What is unchanged after the last block was so at all before it.
        if (!wasUnchanged(file))
            length = -1;
        open.reset();
    }
    return length;
}

bool SameContent::wasUnchanged(int file) const
{
    const std::unique_ptr<ReadableFile> &open = m_open[size_t(file)];
    return !open || open->wasUnchanged(&m_files[size_t(file)]->identity);
}

void SameContent::finish(const Candidates &equal)
{
    Set set;
    if (equal.isHashed)
        set.hash = m_hash.result();
    for (const int file : equal.files) {
        const File &source = *m_files[size_t(file)];
        bool isKept = wasUnchanged(file);
        m_open[size_t(file)].reset();
        if (isKept && set.hash.isEmpty()) {
            set.hash = DuplicateScanner::fullHash(source.path, m_shouldStop, &source.identity);
            isKept = !set.hash.isEmpty();
        }
        if (isKept)
            set.files.push_back(file);
    }
    if (set.files.size() > 1)
        m_sets.push_back(set);
}
