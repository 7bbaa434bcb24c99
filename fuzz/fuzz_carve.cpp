// The carvers, over the input as it is.

#include "observer.h"
#include "patchedimage.h"
#include "recoveryd/scan/carvingscanner.h"

#include <QLoggingCategory>

using namespace services::recoveryd;

extern "C" int LLVMFuzzerTestOneInput(const uchar *input, size_t length)
{
    static const bool isQuiet = [] {
        QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
        return true;
    }();
    Q_UNUSED(isQuiet)
    const auto image = std::make_shared<fuzz::PatchedImage>(
        QByteArray(reinterpret_cast<const char *>(input), int(length)));
    CarvingScanner::Plan plan;
    plan.volume = Volume(image, 0, image->size());
    plan.media = std::make_shared<MediaReader>(plan.volume);
    plan.ranges = {{0, image->size()}};
    fuzz::Observer observer(*plan.media);
    QString error;
    if (!CarvingScanner(plan).scan(observer, &error) && error.isEmpty())
        std::abort();
    return 0;
}
