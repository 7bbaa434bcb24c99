#pragma once

#include <QString>
#include <QUrl>

/// What a packager of this program sets, and nothing else. The defaults lead to reserved example
/// domains, where no update server answers.
namespace core {
namespace deployment {

/// The update server's HTTPS endpoint; "/api/version/latest" is resolved against it.
QUrl updateServerUrl();
/// The maker's web site, linked from the about page and from the pages that a file share shows.
QUrl makerSiteUrl();
/// The secret that signs update requests, shared with the update server. Made at run time, so that
/// it never stands whole in the binary.
QString updateClientSecret();

} // namespace deployment
} // namespace core
