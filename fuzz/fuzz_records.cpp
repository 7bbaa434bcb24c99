// What the services read back from their own folders and from a damaged machine's vault. The first
// byte of the input chooses the reader.

#include "core/ipc/framecodec.h"
#include "readers.h"
#include "recoveryd/content/codec.h"
#include "recoveryd/session/findingcodec.h"
#include "vaultd/vaultfile.h"

#include <QJsonDocument>

#include <cstdlib>

using namespace services;

namespace {

void readFinding(const QByteArray &bytes)
{
    recoveryd::PackedReader reader(bytes);
    recoveryd::Finding finding;
    if (!decode(reader, &finding))
        return;
    // What was read is written and read again as the same bytes.
    recoveryd::PackedWriter once;
    encode(finding, &once);
    recoveryd::PackedReader back(once.bytes());
    recoveryd::Finding again;
    recoveryd::PackedWriter twice;
    if (!decode(back, &again))
        std::abort();
    encode(again, &twice);
    if (once.bytes() != twice.bytes())
        std::abort();
}

void readFrames(const QByteArray &bytes)
{
    core::ipc::FrameDecoder decoder(64 * 1024);
    decoder.append(bytes);
    QByteArray body;
    while (decoder.next(&body) == core::ipc::FrameDecoder::Result::Frame)
        QJsonDocument::fromJson(body);
}

void readVaultRecord(const QByteArray &bytes)
{
    vaultd::VaultFile file;
    QString error;
    const QJsonObject record = QJsonDocument::fromJson(bytes).object();
    if (!vaultd::parseRecord(record, QStringLiteral("id"), &file, &error) && error.isEmpty())
        std::abort();
}

void decompressAll(const QByteArray &bytes)
{
    QByteArray plain;
    for (const auto codec : {recoveryd::Codec::Zlib, recoveryd::Codec::Lzo, recoveryd::Codec::Zstd,
                             recoveryd::Codec::Lznt1})
        if (recoveryd::decompress(codec, bytes, 128 * 1024, &plain) && plain.size() != 128 * 1024)
            std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uchar *input, size_t length)
{
    return fuzz::readByOneOf({readFinding, readFrames, readVaultRecord, decompressAll}, input,
                             length);
}
