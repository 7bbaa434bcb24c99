#pragma once

#include "recoveryd/carve/windowreader.h"

#include <QString>
#include <QVector>

namespace services::recoveryd {

/// How much of a carved file has been seen to be right.
enum class Evidence {
    Header,    ///< Only its first bytes.
    Structure, ///< Its inner structure up to a point, but not its end.
    End,       ///< Its own end.
    Container, ///< Its end, and that everything its directory names is there.
};

inline bool hasEnd(Evidence evidence)
{
    return evidence == Evidence::End || evidence == Evidence::Container;
}

/// What a file may hold in places that its carver has not looked at.
enum class Inside {
    Seen,   ///< All of it was followed.
    Files,  ///< Whole files, which its own directory bounds.
    Noise,  ///< Nothing that looks like a file: its length is told or guessed.
    Frames, ///< Likewise, but for single pictures and sound.
};

struct CarvedFile
{
    QString type;      ///< "PDF"
    QString extension; ///< "pdf"
    qint64 length = 0; ///< Bytes; without a seen end, up to where the structure broke off.
    Evidence evidence = Evidence::Header;
    /// All of the contents were decoded, or matched checksums of the format's own.
    bool isDecoded = false;
    /// The end was seen, but the contents do not decode: without bad sectors, no whole file.
    bool isDamaged = false;
    Inside inside = Inside::Seen;
    /// What follows a file without an end may still be its text.
    bool holdsText = false;
    /// How far the carver had to look, in bytes from the start; what a scan's budget is about.
    qint64 examined = 0;

    /// Sets type and extension.
    void setKind(const char *suffix);
    /// Sets length, evidence and how far was looked, for files that tell their length.
    void setEnd(qint64 end, Evidence seen = Evidence::End);
};

/// Looks at the file that begins at `start`, where its magic stands. False if it is none after all.
/// A damaged or cut file is no failure, but Evidence::Header or Structure. Stateless, any thread.
using CarveFunction = bool (*)(WindowReader &reader, qint64 start, CarvedFile *file);

/// Bytes that stand near the beginning of every file of a format.
struct Magic
{
    template <int N>
    constexpr Magic(qint64 at, const char (&text)[N])
        : offset(at)
        , bytes(text)
        , length(N - 1)
    {}

    qint64 offset;
    const char *bytes; ///< Looked up by its first four.
    int length;
};

struct Carver
{
    Magic magic;
    CarveFunction carve;
};

/// In the order in which they are asked. A format may have several rows.
const QVector<Carver> &carvers();

} // namespace services::recoveryd
