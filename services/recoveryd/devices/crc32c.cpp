#include "recoveryd/devices/crc32c.h"

#include <QtEndian>

namespace services::recoveryd {

namespace {

constexpr quint32 kPolynomial = 0x82F63B78; // 0x1EDC6F41 with its bits reversed
constexpr int kLanes = 8;

struct Tables
{
    quint32 byLane[kLanes][256] = {};
    quint8 byTop[256] = {}; ///< Which entry of the first table has that top byte; they all differ.

    Tables()
    {
        for (quint32 i = 0; i < 256; ++i) {
            quint32 crc = i;
            for (int bit = 0; bit < 8; ++bit)
                crc = (crc >> 1) ^ ((crc & 1) ? kPolynomial : 0);
            byLane[0][i] = crc;
            byTop[crc >> 24] = quint8(i);
        }
        for (int lane = 1; lane < kLanes; ++lane)
            for (quint32 i = 0; i < 256; ++i) {
                const quint32 crc = byLane[lane - 1][i];
                byLane[lane][i] = (crc >> 8) ^ byLane[0][crc & 0xFF];
            }
    }
};

const Tables &tables()
{
    static const Tables made;
    return made;
}

} // namespace

quint32 crc32c(quint32 crc, const char *bytes, qint64 length)
{
    const auto &lane = tables().byLane;
    for (; length >= kLanes; length -= kLanes, bytes += kLanes) {
        const quint32 low = qFromLittleEndian<quint32>(bytes) ^ crc;
        const quint32 high = qFromLittleEndian<quint32>(bytes + 4);
        crc = lane[7][low & 0xFF] ^ lane[6][(low >> 8) & 0xFF] ^ lane[5][(low >> 16) & 0xFF] ^
              lane[4][low >> 24] ^ lane[3][high & 0xFF] ^ lane[2][(high >> 8) & 0xFF] ^
              lane[1][(high >> 16) & 0xFF] ^ lane[0][high >> 24];
    }
    for (; length > 0; --length, ++bytes)
        crc = lane[0][(crc ^ quint8(*bytes)) & 0xFF] ^ (crc >> 8);
    return crc;
}

quint32 crc32cBefore(quint32 crc, const char *bytes, qint64 length)
{
    const Tables &table = tables();
    for (qint64 i = length - 1; i >= 0; --i) {
        const quint8 index = table.byTop[crc >> 24];
        crc = ((crc ^ table.byLane[0][index]) << 8) | (index ^ quint8(bytes[i]));
    }
    return crc;
}

quint32 crc32cNumberBetween(quint32 before, quint32 after)
{
    // The first four bytes only ever enter as their sum with the value before.
    const char zeros[4] = {};
    return crc32cBefore(after, zeros, 4) ^ before;
}

} // namespace services::recoveryd
