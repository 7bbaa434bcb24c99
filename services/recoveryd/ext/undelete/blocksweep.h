#pragma once

#include "recoveryd/devices/range.h"
#include "recoveryd/ext/undelete/layout.h"

#include <functional>

namespace services::recoveryd::ext {

/// Reads stretches of a volume from front to back and hands out their blocks. One thread.
class BlockSweep
{
public:
    /// Takes a block that is not all zeros; its bytes are valid during the call.
    using Visit = std::function<void(qint64 block, const QByteArray &bytes)>;
    /// Asked between pieces, with the bytes read so far; false ends the sweep.
    using GoesOn = std::function<bool(qint64 done)>;

    explicit BlockSweep(const Layout &layout)
        : m_layout(layout)
    {}

    /// `ranges` in bytes, at the borders of blocks; what lies beyond the medium is left out. False
    /// if it was ended.
    [[nodiscard]] bool run(const Ranges &ranges, const Visit &visit, const GoesOn &goesOn) const;

private:
    const Layout &m_layout;
};

} // namespace services::recoveryd::ext
