// The metadata scanners, over an image of their file system with changed bytes. The first byte of
// the input says whether the volume counts as healthy.

#include "observer.h"
#include "patchedimage.h"
#include "recoveryd/scan/filesystemsupport.h"

#include <QLoggingCategory>

using namespace services::recoveryd;

extern "C" int LLVMFuzzerTestOneInput(const uchar *input, size_t length)
{
    static const auto image = std::make_shared<fuzz::PatchedImage>(fuzz::baseImage());
    static const FileSystem fileSystem = [] {
        QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
        image->patch(nullptr, 0);
        return probeFileSystem(Volume(image, 0, image->size()));
    }();
    const FileSystemSupport *const family = supportOf(fileSystem);
    if (!family) {
        std::fprintf(stderr, "no scanner handles the base image\n");
        std::exit(2);
    }
    if (length == 0)
        return 0;
    image->patch(input + 1, length - 1);

    ScanContext context;
    context.media = std::make_shared<MediaReader>(Volume(image, 0, image->size()));
    context.listsExisting = input[0] & 1;
    if (!(input[0] & 2))
        context.fileSystem = fileSystem;
    fuzz::Observer observer(*context.media);
    QString error;
    if (!family->makeScanner(context)->scan(observer, &error) && error.isEmpty())
        std::abort();
    Ranges free;
    if (family->freeRanges && !family->freeRanges(*context.media, &free, &error) && error.isEmpty())
        std::abort();
    for (const Range &range : qAsConst(free))
        if (range.start < 0 || range.length < 0 || range.end() > image->size())
            std::abort();
    return 0;
}
