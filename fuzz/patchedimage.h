#pragma once

#include "recoveryd/devices/image.h"

#include <QVector>

namespace fuzz {

/// A base image in memory with a few bytes changed, so that an input of the fuzzer is small and
/// every one of its bytes changes something that a parser reads.
class PatchedImage : public services::recoveryd::Image
{
public:
    explicit PatchedImage(const QByteArray &base);

    /// Undoes the last changes and makes those of `input`: records of a place (4 bytes), a count
    /// (1 byte, 1 to 16) and so many bytes. Places count within the sectors that are not empty.
    void patch(const uchar *input, size_t length);

protected:
    qint64 readSome(qint64 offset, char *to, qint64 length) const override;

private:
    QByteArray m_base;
    QByteArray m_bytes;
    QVector<int> m_sectors; ///< Numbers of those that are not empty.
    QVector<int> m_changed; ///< Places of changed bytes.
};

/// The image that the environment names, at most 64 MiB; ends the program if there is none.
QByteArray baseImage();

} // namespace fuzz
