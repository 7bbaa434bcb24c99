#include "patchedimage.h"

#include <QFile>
#include <QtEndian>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace fuzz {

namespace {

constexpr int kSector = 512;
constexpr int kMaxBaseBytes = 64 * 1024 * 1024;
constexpr int kPlaceBytes = 4;

} // namespace

PatchedImage::PatchedImage(const QByteArray &base)
    : Image(QStringLiteral("fuzz"), -1, base.size())
    , m_base(base)
    , m_bytes(base)
{
    for (int sector = 0; sector < base.size() / kSector; ++sector) {
        const char *const bytes = base.constData() + sector * kSector;
        if (std::any_of(bytes, bytes + kSector, [](char byte) { return byte != 0; }))
            m_sectors.append(sector);
    }
}

void PatchedImage::patch(const uchar *input, size_t length)
{
    for (const int place : qAsConst(m_changed))
        m_bytes[place] = m_base.at(place);
    m_changed.clear();
    const uchar *const end = input + length;
    const quint32 places = quint32(m_sectors.size()) * kSector;
    while (places > 0 && end - input > kPlaceBytes + 1) {
        const quint32 place = qFromLittleEndian<quint32>(input) % places;
        const int count = 1 + (input[kPlaceBytes] & 15);
        input += kPlaceBytes + 1;
        const int start = m_sectors.at(int(place / kSector)) * kSector + int(place % kSector);
        for (int i = 0; i < count && input < end && start + i < m_bytes.size(); ++i) {
            m_changed.append(start + i);
            m_bytes[start + i] = char(*input++);
        }
    }
}

qint64 PatchedImage::readSome(qint64 offset, char *to, qint64 length) const
{
    const qint64 count = qBound(qint64(0), m_bytes.size() - offset, length);
    std::memcpy(to, m_bytes.constData() + offset, size_t(count));
    return count;
}

QByteArray baseImage()
{
    QFile file(QFile::decodeName(qgetenv("MORVANE_FUZZ_BASE")));
    if (!file.open(QIODevice::ReadOnly) || file.size() > kMaxBaseBytes) {
        std::fprintf(stderr, "MORVANE_FUZZ_BASE names no image of at most 64 MiB\n");
        std::exit(2);
    }
    return file.readAll();
}

} // namespace fuzz
