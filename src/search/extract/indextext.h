#pragma once

#include <QString>

#include <atomic>

namespace search {

class ReaderPool;

/// What the index keeps of one document.
struct IndexText
{
    QString text;
    bool isCut = false; ///< The document goes on behind the text.
};

/// The text of a file for the index: by the readers of the helper where they know the format, else
/// that of the extraction tools, else by the readers after all. Without the helper that of the
/// tools. `maxBytes` is the length that the index keeps of a document. May be called from any
/// thread; waits for tools and helper.
IndexText readForIndex(const QString &path, int maxBytes, const std::atomic_bool *cancel = nullptr);
IndexText readForIndex(ReaderPool &readers, const QString &path, int maxBytes,
                       const std::atomic_bool *cancel);

/// Chooses between the text of the tools and that of the readers.
const QString &betterText(const QString &fromTools, const QString &fromReaders);

} // namespace search
