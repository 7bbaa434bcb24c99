#pragma once

#include "analyzer/duplicate_scanner.h"

#include <QByteArray>
#include <QCryptographicHash>

#include <functional>
#include <memory>
#include <vector>

class ReadableFile;

/// Sorts files by their content. They are compared block by block and parted at the first block
/// that differs, so only one file of each set is hashed. Holds two blocks, whatever their number.
class SameContent
{
public:
    using File = DuplicateScanner::PhysicalFileGroup;

    struct Set
    {
        QByteArray hash;        ///< MD5 of the whole content, raw.
        std::vector<int> files; ///< Indexes into the files given; at least two.
    };

    /// `shouldStop` is asked before each block that is read.
    SameContent(std::vector<const File *> files, std::function<bool()> shouldStop);
    ~SameContent();

    /// The sets of equal files. A file that cannot be read, is not the one of its identity or is
    /// written to meanwhile is in none. Incomplete on a stop. Call once.
    std::vector<Set> sets();

private:
    /// Files that are equal up to the current block.
    struct Candidates
    {
        std::vector<int> files;
        bool isHashed; // m_hash has all up to the current block
    };

    std::vector<Candidates> compareBlock(qint64 offset, const std::vector<Candidates> &all);
    /// Takes the files that are equal to the first readable one out of `rest`, and the unreadable
    /// ones. Sets the length of the block that they share.
    std::vector<int> takeEqual(qint64 offset, std::vector<int> *rest, qint64 *length);
    qint64 readBlock(int file, qint64 offset, char *buffer);
    void finish(const Candidates &equal);
    bool wasUnchanged(int file) const;

    const std::vector<const File *> m_files;
    const std::function<bool()> m_shouldStop;
    std::vector<std::unique_ptr<ReadableFile>> m_open;
    qint64 m_blockSize;
    std::unique_ptr<char[]> m_first; // the block of the file that others are compared with
    std::unique_ptr<char[]> m_other;
    QCryptographicHash m_hash;
    std::vector<Set> m_sets;
};
