#include "recoveryd/content/lznt1.h"

#include <QtEndian>

#include <cstring>

namespace services::recoveryd {

namespace {

constexpr int kChunk = 4096; ///< Plain bytes of each chunk.
constexpr int kMinMatch = 3;

/// Decompresses one chunk; `room` is at most kChunk. False on damaged data.
bool unpackChunk(const char *from, const char *end, char *to, int room)
{
    int done = 0;
    while (from < end) {
        int flags = quint8(*from++);
        for (int i = 0; i < 8 && from < end; ++i, flags >>= 1) {
            if ((flags & 1) == 0) {
                if (done >= room)
                    return false;
                to[done++] = *from++;
                continue;
            }
            if (end - from < 2 || done == 0)
                return false;
            // The further into the chunk, the more bits go to the distance.
            int lengthBits = 12;
            for (int reach = done - 1; reach >= 0x10; reach >>= 1)
                --lengthBits;
            const int token = qFromLittleEndian<quint16>(from);
            from += 2;
            const int distance = (token >> lengthBits) + 1;
            const int length = (token & ((1 << lengthBits) - 1)) + kMinMatch;
            if (distance > done || length > room - done)
                return false;
            for (int copied = 0; copied < length; ++copied, ++done)
                to[done] = to[done - distance]; // they may overlap
        }
    }
    return true;
}

} // namespace

bool decompressLznt1(const QByteArray &stored, qint64 length, QByteArray *plain)
{
    plain->fill('\0', int(length));
    const char *at = stored.constData();
    const char *const end = at + stored.size();
    for (qint64 done = 0; done < length && end - at >= 2; done += kChunk) {
        const int header = qFromLittleEndian<quint16>(at);
        if (header == 0)
            return true;
        const int size = (header & 0x0FFF) + 1;
        at += 2;
        if (size > end - at)
            return false;
        const int room = int(qMin(qint64(kChunk), length - done));
        if ((header & 0x8000) == 0)
            std::memcpy(plain->data() + done, at, size_t(qMin(size, room)));
        else if (!unpackChunk(at, at + size, plain->data() + done, room))
            return false;
        at += size;
    }
    return true;
}

} // namespace services::recoveryd
