// Partition tables, the probe of file systems and the search for lost volumes, over a disk image
// with changed bytes.

#include "observer.h"
#include "patchedimage.h"
#include "recoveryd/devices/partitiontable.h"
#include "recoveryd/scan/volumesearch.h"

#include <QLoggingCategory>

using namespace services::recoveryd;

extern "C" int LLVMFuzzerTestOneInput(const uchar *input, size_t length)
{
    static const auto image = std::make_shared<fuzz::PatchedImage>([] {
        QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
        return fuzz::baseImage();
    }());
    image->patch(input, length);
    const Volume disk(image, 0, image->size());
    QVector<Partition> partitions;
    QString error;
    if (!readPartitionTable(disk, &partitions, &error) && error.isEmpty())
        std::abort();
    for (const Partition &partition : qAsConst(partitions))
        probeFileSystem(Volume(image, partition.start, partition.size));
    const MediaReader media(disk);
    VolumeSearch search(media);
    fuzz::Observer observer(media);
    if (!search.searchEnds(observer))
        (void)search.searchAll(observer);
    return 0;
}
