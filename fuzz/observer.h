#pragma once

#include "recoveryd/content/contentreader.h"
#include "recoveryd/scan/scanner.h"

#include <cstdlib>

namespace fuzz {

/// Takes findings, reads the contents of the first ones, and stops the program where one of them
/// makes no sense.
class Observer : public services::recoveryd::ScanObserver
{
public:
    explicit Observer(const services::recoveryd::MediaReader &media)
        : m_media(media)
    {}

    bool mayGoOn() override { return true; }
    void advanced(qint64) override {}
    bool found(services::recoveryd::Finding &&finding) override
    {
        constexpr int kRead = 32;
        constexpr int kEnough = 20000;
        constexpr qint64 kBytes = 256 * 1024;
        if (finding.content.size < 0)
            std::abort();
        QByteArray bytes(int(qMin(kBytes, finding.content.size)), 0);
        if (m_files < kRead)
            services::recoveryd::ContentReader(m_media, finding.content)
                .read(0, bytes.data(), bytes.size());
        return ++m_files < kEnough;
    }

private:
    const services::recoveryd::MediaReader &m_media;
    int m_files = 0;
};

} // namespace fuzz
