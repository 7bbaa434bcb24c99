#pragma once

#include "recoveryd/carve/readahead.h"
#include "recoveryd/devices/mediareader.h"

#include <functional>
#include <memory>
#include <vector>

namespace services::recoveryd {

/// A moving window over stretches of a volume, which are seen as one run of bytes without gaps:
/// free space without the files between, or the pieces of one file. Bytes are read in large pieces
/// and handed out as pointers into the window, which the next call may move. Scanner and carvers
/// share one, so that a file's bytes are read once: a carver looks ahead in a second window, and
/// while a run is gone through from front to back, the next piece is read at the same time. What a
/// damaged medium does not give reads as zeros. One thread.
class WindowReader
{
public:
    static constexpr qint64 kWindow = 4 * 1024 * 1024;
    /// What a jump ahead reads at first.
    static constexpr qint64 kPeep = 32 * 1024;
    /// The most that at() gives in one piece.
    static constexpr qint64 kMaxPiece = 128 * 1024;

    struct Span
    {
        const uchar *bytes = nullptr;
        qint64 length = 0;
    };

    /// `pieces` are in the order of the run, which need not be that of the volume. `mayGoOn` is
    /// asked before each read; once it says no, nothing more is given out. All offsets below are
    /// within the run.
    WindowReader(const MediaReader &media, const QVector<Range> &pieces,
                 std::function<bool()> mayGoOn);

    /// No byte from `end` on is given out.
    void setEnd(qint64 end) { m_end = qMin(end, m_size); }
    qint64 end() const { return m_end; }
    qint64 size() const { return m_size; }
    /// Where a stretch of the run is on the volume.
    QVector<Range> placesOf(qint64 offset, qint64 length) const;

    /// `length` bytes from `offset` on; null beyond the end, and after a failure.
    const uchar *at(qint64 offset, qint64 length);
    /// What the window holds from `offset` on, at least `least` bytes; empty beyond the end, and
    /// after a failure.
    Span span(qint64 offset, qint64 least = 1);
    /// The first place in [from, to) where `token` begins and lies wholly before `to`; -1 if there
    /// is none. What a search has seen is remembered, so that many files without an end do not
    /// cost a search through the rest of the run each.
    qint64 find(qint64 from, qint64 to, const char *token, qint64 tokenLength);

    /// While one lives, the bytes around `offset` stay where they are, for whoever comes back.
    class Aside
    {
    public:
        Aside(WindowReader &reader, qint64 offset)
            : m_reader(reader)
        {
            m_reader.stay(offset);
        }
        ~Aside() { m_reader.m_isAside = false; }
        Aside(const Aside &) = delete;
        Aside &operator=(const Aside &) = delete;

    private:
        WindowReader &m_reader;
    };

    /// Empty unless the medium has gone.
    QString error() const { return m_error; }
    /// Without what a search saw for the first time: each token may cost one reading of the run.
    qint64 bytesRead() const { return m_bytesRead; }

private:
    struct Piece
    {
        qint64 offset = 0; ///< Within the run.
        Range place;
    };

    struct Window
    {
        std::vector<uchar> buffer;    ///< Room for the end of an earlier window, then the rest.
        const uchar *bytes = nullptr; ///< In the buffer: those from `start` on.
        qint64 start = 0;
        qint64 length = 0;

        qint64 end() const { return start + length; }
        bool holds(qint64 from, qint64 to) const { return from >= start && to <= end(); }
    };

    /// What is known of where a token stands.
    struct Search
    {
        QByteArray token;
        qint64 from = 0;
        qint64 to = 0;            ///< No place from here on has been looked at,
        qint64 seenTo = 0;        ///< and none from here on in any earlier search.
        std::vector<qint64> hits; ///< Ascending.
    };

    Search &searchFor(const QByteArray &token, qint64 from);
    void stay(qint64 offset);
    const Window *holding(qint64 from, qint64 to) const;
    const Window *fill(qint64 offset, qint64 least);
    [[nodiscard]] bool takeNext(qint64 start, Window *window);
    void readRun(qint64 offset, uchar *to, qint64 length) const;
    const Piece *pieceAt(qint64 offset) const;

    const MediaReader &m_media;
    std::vector<Piece> m_pieces;
    qint64 m_size = 0;
    std::function<bool()> m_mayGoOn;
    Window m_main;
    Window m_side; ///< Of a carver that looks ahead.
    bool m_isAside = false;
    qint64 m_end = 0;
    qint64 m_bytesRead = 0;
    std::vector<Search> m_searches; ///< One for each token.
    QString m_error;
    std::unique_ptr<ReadAhead> m_ahead; ///< Only for runs of several windows.
    qint64 m_aheadAt = -1;              ///< What it reads begins there.
};

} // namespace services::recoveryd
