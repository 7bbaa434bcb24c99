#pragma once

#include "recoveryd/carve/carver.h"
#include "recoveryd/carve/text/textencoding.h"

namespace services::recoveryd {

/// A text file as it is seen sector by sector: it goes on while the sectors are text of one
/// encoding, and ends where the rest of a sector is zero. One thread.
class TextRun
{
public:
    enum class Step {
        NoText, ///< The sector does not belong to the run; what was open is over.
        More,   ///< It does, and the run may go on.
        Last,   ///< It does, and the file ends in it.
    };

    /// Cheap, from the first bytes of a sector of at least 64.
    static bool mayBegin(const uchar *sector);

    /// The next sector, at byte `at`; it may be shorter at the end of the run of bytes.
    Step take(qint64 at, const uchar *sector, qint64 length);
    bool isOpen() const { return m_end > m_start; }
    void clear() { *this = TextRun(); }

    qint64 start() const { return m_start; }
    /// Describes what was taken; false if it is too little to be called a file.
    [[nodiscard]] bool describe(WindowReader &reader, CarvedFile *file) const;

private:
    qint64 m_start = 0;
    qint64 m_end = 0;
    TextEncoding m_encoding = TextEncoding::None;
    bool m_hasEnd = false; ///< Zeros followed.
};

} // namespace services::recoveryd
