#pragma once

#include "recoveryd/devices/mediareader.h"

#include <functional>
#include <vector>

namespace services {
namespace recoveryd {

/// A moving window over a volume: bytes are read in large aligned pieces and handed out as pointers
/// into the window, which the next call may move. Scanner and carvers share one, so that a file's
/// bytes are read once. What a damaged medium does not give reads as zeros. One thread.
class WindowReader
{
public:
    static constexpr qint64 kWindow = 4 * 1024 * 1024;
    /// The most that at() gives in one piece.
    static constexpr qint64 kMaxPiece = 128 * 1024;

    struct Span
    {
        const uchar *bytes = nullptr;
        qint64 length = 0;
    };

    /// `mayGoOn` is asked before each read; once it says no, nothing more is given out.
    WindowReader(std::shared_ptr<const MediaReader> media, std::function<bool()> mayGoOn);

    /// No byte from `end` on is given out: files in free space end where the free space does.
    void setEnd(qint64 end) { m_end = qMin(end, m_media->size()); }
    qint64 end() const { return m_end; }

    /// `length` bytes from `offset` on; null beyond the end, and after a failure.
    const uchar *at(qint64 offset, qint64 length);
    /// What the window holds from `offset` on, at least one byte; empty beyond the end, and after a
    /// failure.
    Span span(qint64 offset);
    /// The first place in [from, to) where `token` begins and lies wholly before `to`; -1 if there
    /// is none.
    qint64 find(qint64 from, qint64 to, const char *token, qint64 tokenLength);

    /// Empty unless the medium has gone.
    QString error() const { return m_error; }
    qint64 bytesRead() const { return m_bytesRead; }

private:
    [[nodiscard]] bool fill(qint64 offset, qint64 least);

    std::shared_ptr<const MediaReader> m_media;
    std::function<bool()> m_mayGoOn;
    std::vector<uchar> m_window;
    qint64 m_start = 0;
    qint64 m_length = 0;
    qint64 m_end;
    qint64 m_bytesRead = 0;
    QString m_error;
};

} // namespace recoveryd
} // namespace services
