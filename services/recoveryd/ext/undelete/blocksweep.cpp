#include "recoveryd/ext/undelete/blocksweep.h"

#include <cstring>

namespace services::recoveryd::ext {

namespace {

constexpr qint64 kWindow = 4 * 1024 * 1024;

bool isZero(const char *bytes, qint64 size)
{
    return bytes[0] == 0 && std::memcmp(bytes, bytes + 1, size_t(size - 1)) == 0;
}

} // namespace

bool BlockSweep::run(const Ranges &ranges, const Visit &visit, const GoesOn &goesOn) const
{
    const qint64 size = m_layout.blockSize();
    QByteArray window(int(kWindow), '\0');
    qint64 done = 0;
    for (const Range &range : ranges)
        for (qint64 at = range.start; at < range.end(); at += kWindow) {
            if (!goesOn(done))
                return false;
            if (at >= m_layout.media().size())
                return true;
            const qint64 length = qMin(kWindow, range.end() - at);
            m_layout.media().read(at, window.data(), length);
            for (qint64 i = 0; i + size <= length; i += size)
                if (!isZero(window.constData() + i, size))
                    visit((at + i) / size,
                          QByteArray::fromRawData(window.constData() + i, int(size)));
            done += length;
        }
    return true;
}

} // namespace services::recoveryd::ext
