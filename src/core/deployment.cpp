#include "core/deployment.h"

namespace core {
namespace deployment {

QUrl updateServerUrl()
{
    return QUrl(QStringLiteral("https://update.morvane.example"));
}

QUrl makerSiteUrl()
{
    return QUrl(QStringLiteral("https://www.morvane.example"));
}

QString updateClientSecret()
{
    // The bytes of the secret, each xor-ed with its place and the mask. A packager replaces them;
    // as they stand they give "set-by-the-packager".
    constexpr uchar kMask = 0x5a;
    constexpr uchar kMasked[] = {0x29, 0x3e, 0x2c, 0x74, 0x3c, 0x26, 0x71, 0x29, 0x3a, 0x36,
                                 0x7d, 0x21, 0x37, 0x34, 0x3f, 0x34, 0x2d, 0x2e, 0x3a};
    QByteArray secret;
    for (uchar place = 0; place < sizeof kMasked; ++place)
        secret.append(static_cast<char>(kMasked[place] ^ kMask ^ place));
    return QString::fromLatin1(secret);
}

} // namespace deployment
} // namespace core
