#pragma once

#include "recoveryd/content/contentreader.h"
#include "recoveryd/scan/scanner.h"

#include <QVector>

namespace testsupport {

/// Takes everything that a scanner finds.
class CollectingObserver : public services::recoveryd::ScanObserver
{
public:
    QVector<services::recoveryd::Finding> findings;
    qint64 lastAdvance = 0;
    int asked = 0;
    int stopAfter = -1; ///< So many times it may go on; -1: no limit.

    bool mayGoOn() override { return stopAfter < 0 || asked++ < stopAfter; }
    void advanced(qint64 done) override { lastAdvance = done; }
    bool found(services::recoveryd::Finding &&finding) override
    {
        findings.append(std::move(finding));
        return true;
    }

    /// The findings of that name, whatever their folder.
    QVector<services::recoveryd::Finding> named(const QByteArray &name) const
    {
        QVector<services::recoveryd::Finding> found;
        for (const services::recoveryd::Finding &finding : findings)
            if (finding.name == name)
                found.append(finding);
        return found;
    }
};

/// A whole image as the medium of a scan; null if it cannot be opened.
inline std::shared_ptr<const services::recoveryd::MediaReader> mediaOf(const QString &image)
{
    const auto file = services::recoveryd::Image::open(image, nullptr);
    if (!file)
        return nullptr;
    return std::make_shared<services::recoveryd::MediaReader>(
        services::recoveryd::Volume(file, 0, file->size()));
}

inline QByteArray bytesOf(const services::recoveryd::MediaReader &media,
                          const services::recoveryd::Finding &finding)
{
    return services::recoveryd::ContentReader(media, finding.content).readAll();
}

} // namespace testsupport
