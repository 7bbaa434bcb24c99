#include "ui/common/theme.h"
#include "ui/pages/analyzersettingsdialog/sizeunits.h"
#include "ui/pages/diskanalyzerpage/analyzertext.h"
#include "ui/pages/diskanalyzerpage/directorymodel.h"
#include "ui/pages/diskanalyzerpage/dirfilemodel.h"
#include "ui/pages/diskanalyzerpage/duplicategroups.h"
#include "ui/pages/diskanalyzerpage/filekinds.h"
#include "ui/pages/diskanalyzerpage/mountinfo.h"
#include "ui/pages/diskanalyzerpage/partitionrules.h"
#include "ui/pages/diskanalyzerpage/treemapitems.h"
#include "ui/pages/diskanalyzerpage/treemaplayout.h"

#include <QSignalSpy>
#include <QTest>

Q_DECLARE_METATYPE(diskanalyzer::FileKind)
Q_DECLARE_METATYPE(diskanalyzer::PartitionInfo)

using namespace diskanalyzer;
using ui::common::ThemeColors;

namespace {

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

PartitionInfo volume(const char *mountPath, const char *device, const char *fsType = "ext4",
                     const char *fsRoot = "/", qint64 total = 100)
{
    PartitionInfo info;
    info.mountPath = text(mountPath);
    info.device = text(device);
    info.fsType = text(fsType);
    info.fsRoot = text(fsRoot);
    info.totalBytes = total;
    return info;
}

/// A data partition with bound directories, as some desktops set it up, and a btrfs disk.
const char *const kMounts = "21 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
                            "22 21 8:5 / /data rw shared:2 - ext4 /dev/sda5 rw\n"
                            "23 21 8:5 /home /home rw shared:3 master:4 - ext4 /dev/sda5 rw\n"
                            "24 21 8:5 /my\\040files /mnt/a\\134b rw - ext4 /dev/sda5 rw\n"
                            "25 21 0:40 /@ /mnt/btrfs rw - btrfs /dev/sdb1 rw,subvol=/@\n"
                            "a line that is none\n";

} // namespace

class TestDiskAnalyzerRules : public QObject
{
    Q_OBJECT

private slots:
    void hidesForeignVolumes_data();
    void hidesForeignVolumes();
    void labelsMounts_data();
    void labelsMounts();
    void ordersCardsOnePerVolume_data();
    void ordersCardsOnePerVolume();
    void readsMountInfo();
    void extendsProtectedDirs_data();
    void extendsProtectedDirs();
    void writesSizes_data();
    void writesSizes();
    void splitsSizes_data();
    void splitsSizes();
    void asksBeforeDeletion();
    void knowsKinds_data();
    void knowsKinds();
    void keepsTreeInStep();
    void removesFilesInOnePass_data();
    void removesFilesInOnePass();
    void choosesWhatToKeep();
    void countsDuplicatesAfterRemoval();
    void fillsTreemap_data();
    void fillsTreemap();
    void walksTreemapByKeys();
    void foldsSmallDirectories();
    void labelsCanBeRead_data();
    void labelsCanBeRead();
};

void TestDiskAnalyzerRules::hidesForeignVolumes_data()
{
    QTest::addColumn<PartitionInfo>("info");
    QTest::addColumn<bool>("shown");
    QTest::newRow("plain") << volume("/", "/dev/sda1") << true;
    QTest::newRow("ntfs") << volume("/media/u/USB", "/dev/sdb1", "fuseblk") << true;
    QTest::newRow("tmpfs") << volume("/tmp", "tmpfs", "tmpfs") << false;
    QTest::newRow("overlay") << volume("/", "overlay", "overlay") << false;
    QTest::newRow("any fuse") << volume("/home/u/x", "x", "fuse.rclone") << false;
    QTest::newRow("nfs device") << volume("/mnt/x", "host:/x", "ext4") << false;
    QTest::newRow("smb device") << volume("/mnt/x", "//host/x", "ext4") << false;
    QTest::newRow("gvfs") << volume("/home/u/gvfs/smb-share:server=a", "x") << false;
    QTest::newRow("run") << volume("/run/media/u/USB", "/dev/sdb1") << false;
    QTest::newRow("boot") << volume("/boot", "/dev/sda2") << false;
    QTest::newRow("efi") << volume("/boot/efi", "/dev/sda2", "vfat") << false;
    QTest::newRow("below boot") << volume("/boot/other", "/dev/sda2") << true;
}

void TestDiskAnalyzerRules::hidesForeignVolumes()
{
    QFETCH(PartitionInfo, info);
    QTEST(isLocalVolume(info), "shown");
    QCOMPARE(partitionCards({info}).size(), isLocalVolume(info) ? 1 : 0);
}

void TestDiskAnalyzerRules::labelsMounts_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("title");
    QTest::newRow("root") << text("/") << text("系统盘") << text("系统盘  /");
    QTest::newRow("data") << text("/data") << text("数据盘") << text("数据盘  /data");
    QTest::newRow("home") << text("/home/u") << text("数据盘") << text("数据盘  /home/u");
    QTest::newRow("usb") << text("/media/u/My Disk") << text("My Disk")
                         << text("My Disk  /media/u/My Disk");
    QTest::newRow("other") << text("/opt") << text("/opt") << text("/opt  /dev/x");
}

void TestDiskAnalyzerRules::labelsMounts()
{
    QFETCH(QString, path);
    PartitionInfo info = volume(qPrintable(path), "/dev/x");
    info.label = partitionLabel(path);
    QTEST(info.label, "label");
    QTEST(partitionTitle(info), "title");
}

void TestDiskAnalyzerRules::ordersCardsOnePerVolume_data()
{
    QTest::addColumn<QVector<PartitionInfo>>("volumes");
    QTest::addColumn<QString>("cards");
    QTest::newRow("order") << QVector<PartitionInfo>{volume("/opt", "/dev/e"),
                                                     volume("/home", "/dev/d"),
                                                     volume("/a", "/dev/c"),
                                                     volume("/data", "/dev/b"),
                                                     volume("/", "/dev/a")}
                           << text("/ /data /home /a /opt");
    QTest::newRow("bound directory")
        << QVector<PartitionInfo>{volume("/home", "/dev/b", "ext4", "/home"),
                                  volume("/data", "/dev/b")}
        << text("/data");
    QTest::newRow("mounted twice")
        << QVector<PartitionInfo>{volume("/mnt/z", "/dev/b"), volume("/mnt/a", "/dev/b")}
        << text("/mnt/a");
    QTest::newRow("bound before the whole")
        << QVector<PartitionInfo>{volume("/data", "/dev/b", "ext4", "/x"),
                                  volume("/mnt/all", "/dev/b")}
        << text("/mnt/all");
    QTest::newRow("subvolumes") << QVector<PartitionInfo>{volume("/", "/dev/b", "btrfs", "/@"),
                                                          volume("/home", "/dev/b", "btrfs",
                                                                 "/@home")}
                                << text("/ /home");
    QTest::newRow("no size") << QVector<PartitionInfo>{volume("/x", "/dev/b", "ext4", "/", 0)}
                             << QString();
}

void TestDiskAnalyzerRules::ordersCardsOnePerVolume()
{
    QFETCH(QVector<PartitionInfo>, volumes);
    QStringList paths;
    for (const PartitionInfo &card : partitionCards(volumes))
        paths.append(card.mountPath);
    QTEST(paths.join(QLatin1Char(' ')), "cards");
}

void TestDiskAnalyzerRules::readsMountInfo()
{
    const QVector<MountEntry> mounts = parseMountInfo(kMounts);
    QCOMPARE(mounts.size(), 5);
    QCOMPARE(mounts.at(3).mountPoint, text("/mnt/a\\b"));
    QCOMPARE(mounts.at(3).root, text("/my files"));
    QCOMPARE(mounts.at(2).deviceNumber, text("8:5"));
    QCOMPARE(mounts.at(4).fsType, text("btrfs"));
    QCOMPARE(mounts.at(4).source, text("/dev/sdb1"));
    QCOMPARE(parseMountInfo("").size(), 0);
    QCOMPARE(parseMountInfo("21 1 8:1 / / rw -").size(), 0);
}

void TestDiskAnalyzerRules::extendsProtectedDirs_data()
{
    QTest::addColumn<QString>("dirs");
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("isProtected");
    const auto row = [](const char *name, const char *dirs, const char *path, bool isProtected) {
        QTest::newRow(name) << text(dirs) << text(path) << isProtected;
    };
    row("itself", "/home/u/docs", "/home/u/docs", true);
    row("below", "/home/u/docs/", "/home/u/docs/a/b", true);
    row("longer name", "/home/u/docs", "/home/u/docs2/a", false);
    row("through the whole", "/home/u/docs", "/data/home/u/docs/a", true);
    row("through the bound part", "/data/home/u", "/home/u/a", true);
    row("bound from inside", "/data/my files", "/mnt/a\\b/x", true);
    row("all of a device", "/data", "/mnt/a\\b/x", true);
    row("another device", "/data", "/srv/x", false);
    row("relative", "docs", "/docs/a", false);
    row("none", "", "/a", false);
}

void TestDiskAnalyzerRules::extendsProtectedDirs()
{
    QFETCH(QString, dirs);
    QFETCH(QString, path);
    const QStringList all = withMountAliases({dirs}, parseMountInfo(kMounts));
    QTEST(isProtectedPath(path, all), "isProtected");
}

void TestDiskAnalyzerRules::writesSizes_data()
{
    QTest::addColumn<qint64>("bytes");
    QTest::addColumn<QString>("shown");
    const qint64 mega = 1024 * 1024;
    QTest::newRow("negative") << qint64(-5) << text("0 B");
    QTest::newRow("bytes") << qint64(1023) << text("1023 B");
    QTest::newRow("KB") << qint64(1536) << text("1.5 KB");
    QTest::newRow("rounds into the next unit") << mega - 1 << text("1.0 MB");
    QTest::newRow("GB") << 1536 * mega << text("1.5 GB");
    QTest::newRow("nothing above GB") << 2 * mega * mega << text("2048.0 GB");
}

void TestDiskAnalyzerRules::writesSizes()
{
    QFETCH(qint64, bytes);
    QTEST(formatSize(bytes), "shown");
}

void TestDiskAnalyzerRules::splitsSizes_data()
{
    QTest::addColumn<qint64>("bytes");
    QTest::addColumn<int>("number");
    QTest::addColumn<int>("unit");
    const qint64 mega = 1024 * 1024;
    QTest::newRow("1 GB") << 1024 * mega << 1 << 2;
    QTest::newRow("1.5 GB") << 1536 * mega << 1536 << 1;
    QTest::newRow("1 MB") << mega << 1 << 1;
    QTest::newRow("1 KB more") << mega + 1024 << 1025 << 0;
    QTest::newRow("2 TB") << 2 * mega * mega << 2048 << 2;
}

void TestDiskAnalyzerRules::splitsSizes()
{
    QFETCH(qint64, bytes);
    const analyzersettings::SizeInUnit size = analyzersettings::sizeInLargestUnit(bytes);
    QTEST(size.number, "number");
    QTEST(size.unit, "unit");
    QCOMPARE(bytesOf(size), bytes);
}

void TestDiskAnalyzerRules::asksBeforeDeletion()
{
    const QString trash = text("移到回收站：之后可以还原，清空回收站后才会释放空间。");
    QCOMPARE(deleteOneText(text("/a/%1"), false),
             text("确定要删除文件 /a/%1 吗？\n\n") + trash + text("\n\n永久删除：文件无法恢复。"));
    QCOMPARE(deleteOneText(text("/a"), true),
             text("确定要删除文件 /a 吗？\n\n") + trash +
                 text("\n\n⚠ 该文件位于受保护目录下，删除后将进入保险箱而非永久删除。"));
    QCOMPARE(deleteManyText(3, 2),
             trash + text("\n\n永久删除：即将删除 3 个文件，此操作不可撤销。\n\n⚠ 其中 2 "
                          "个文件位于受保护目录下，删除后将进入保险箱而非永久删除。"));
    QVERIFY(!deleteManyText(2, 2).contains(text("永久删除：")));
    QVERIFY(deletedFilesText(3, 0).contains(text("永久删除")));
    QVERIFY(deletedFilesText(3, 2).contains(text("其余文件将被永久删除")));
    QVERIFY(!deletedFilesText(3, 3).contains(text("将被永久删除")));
    QCOMPARE(selectedFilesText(2, 2048), text("选中 2 个文件，共 2.0 KB"));
    QCOMPARE(percentText(sharePercent(1, 100000)), text("<0.1%"));
    QCOMPARE(percentText(sharePercent(1, 3)), text("33.3%"));
    QCOMPARE(sharePercent(5, 0), 0.0);
}

void TestDiskAnalyzerRules::knowsKinds_data()
{
    QTest::addColumn<QString>("extensions");
    QTest::addColumn<FileKind>("kind");
    QTest::newRow("office") << text("DOCX pdf wps") << FileKind::Office;
    QTest::newRow("archive") << text("zip 7z ISO") << FileKind::Archive;
    QTest::newRow("code") << text("cpp py") << FileKind::Code;
    QTest::newRow("audio") << text("mp3 flac") << FileKind::Audio;
    QTest::newRow("video") << text("mkv MP4") << FileKind::Video;
    QTest::newRow("image") << text("jpg png") << FileKind::Image;
    QTest::newRow("text") << text("txt log") << FileKind::Text;
    QTest::newRow("database") << text("db sqlite") << FileKind::Database;
    QTest::newRow("other") << text("xyz") << FileKind::Other;
}

void TestDiskAnalyzerRules::knowsKinds()
{
    QFETCH(QString, extensions);
    for (const QString &extension : extensions.split(QLatin1Char(' '))) {
        QTEST(fileKindForExtension(extension), "kind");
        QVERIFY(colorForExtension(extension, ThemeColors::light()).isValid());
    }
    QCOMPARE(fileKindForExtension(QString()), FileKind::Other);
}

void TestDiskAnalyzerRules::keepsTreeInStep()
{
    const auto node = [](const char *name, qint64 total, qint64 own,
                         const QVariantList &children = {}) {
        return QVariantMap{{text("name"), text(name)},
                           {text("totalSize"), total},
                           {text("fileSize"), own},
                           {text("children"), children}};
    };
    const DirectoryTree tree = directoryTreeFromMap(
        node("x", 100, 10, {node("a", 90, 30, {node("b", 60, 60)})}), text("/"));
    const DirectoryNode *a = tree->children.front().get();
    QCOMPARE(pathOf(tree.get()), text("/"));
    QCOMPARE(pathOf(a->children.front().get()), text("/a/b"));
    const DirectoryNode *b = a->children.front().get();
    subtractFiles(tree, {{text("/a/b/file"), 15}, {text("/a/b/other"), 5}, {text("/a/c/file"), 7}});
    QCOMPARE(b->fileSize, 40);
    QCOMPARE(b->totalSize, 40);
    QCOMPARE(a->totalSize, 70);
    QCOMPARE(a->fileSize, 30);
    QCOMPARE(tree->totalSize, 80);
    subtractFiles(tree, {{text("/top"), 4}, {text("/a/file"), 1000}});
    QCOMPARE(tree->fileSize, 6);
    QCOMPARE(a->fileSize, 0);
    QCOMPARE(tree->totalSize, 46);
    const DirectoryTree other = directoryTreeFromMap(node("x", 9, 9), text("/a"));
    subtractFiles(other, {{text("/ab/file"), 5}});
    QCOMPARE(other->totalSize, 9);
}

void TestDiskAnalyzerRules::removesFilesInOnePass_data()
{
    QTest::addColumn<int>("wide");
    QTest::addColumn<int>("deep");
    QTest::newRow("wide") << 3000 << 1;
    QTest::newRow("wide and deep") << 1000 << 3;
    QTest::newRow("few") << 3 << 2;
}

/// One file goes from each of many directories beside each other.
void TestDiskAnalyzerRules::removesFilesInOnePass()
{
    QFETCH(int, wide);
    QFETCH(int, deep);
    const auto tree = std::make_shared<DirectoryNode>();
    tree->name = text("/r");
    QVector<RemovedFile> files;
    for (int i = 0; i < wide; ++i) {
        DirectoryNode *parent = tree.get();
        QString path = tree->name;
        for (int level = 0; level < deep; ++level) {
            auto child = std::make_unique<DirectoryNode>();
            child->name = QString::number(i);
            child->totalSize = 10;
            child->fileSize = level == deep - 1 ? 10 : 0;
            child->parent = parent;
            child->row = int(parent->children.size());
            path += QLatin1Char('/') + child->name;
            parent->children.push_back(std::move(child));
            parent = parent->children.back().get();
        }
        tree->totalSize += 10;
        files.append({path + text("/file"), 4});
    }
    QVERIFY(subtractFiles(tree, files).nodesVisited <= wide * deep);
    QCOMPARE(tree->totalSize, wide * 6);

    DirectoryModel model;
    model.setTree(tree);
    QSignalSpy changes(&model, &DirectoryModel::dataChanged);
    QSignalSpy layouts(&model, &DirectoryModel::layoutChanged);
    model.removeFiles(files);
    QCOMPARE(tree->totalSize, wide * 2);
    QVERIFY(changes.size() + layouts.size() > 0);
    QVERIFY(changes.size() + layouts.size() < 50);

    QVariantList listed;
    QSet<QString> names;
    for (int i = 0; i <= wide; ++i) {
        listed.append(QVariantMap{{text("name"), QString::number(i)}});
        names.insert(QString::number(i + 1));
    }
    DirFileModel list;
    list.setFiles(listed);
    QSignalSpy resets(&list, &DirFileModel::modelReset);
    QSignalSpy removals(&list, &DirFileModel::rowsRemoved);
    list.removeFiles(names);
    QCOMPARE(list.rowCount(), 1);
    QVERIFY(resets.size() + removals.size() < 50);
}

namespace {

QVariantList duplicates(bool byHash)
{
    QVariantMap group{{text("size"), 1000}};
    if (byHash)
        group.insert(text("hash"), text("ab"));
    QVariantList files;
    for (const char *path : {"/a/1", "/a/2", "/a/3"})
        files.append(QVariantMap{{text("path"), text(path)},
                                 {text("aliasCount"), text(path).endsWith(text("3")) ? 1 : 0}});
    group.insert(text("files"), files);
    return {QVariantMap{{text("totalGroups"), 7},
                        {text("totalReclaimable"), 50000},
                        {text("shownGroups"), 1}},
            group};
}

} // namespace

void TestDiskAnalyzerRules::choosesWhatToKeep()
{
    const DuplicateResult byHash = duplicateResultFromList(duplicates(true));
    QCOMPARE(byHash.groups.size(), 1);
    QCOMPARE(byHash.totalGroups, 7);
    QVERIFY(byHash.groups.first().files.first().keep);
    QCOMPARE(byHash.unkeptCount(), 2);
    // A file with another hard link frees nothing.
    QCOMPARE(byHash.groups.first().unkeptBytes(), 1000);
    QCOMPARE(cleanGroupText(byHash.groups.first()), text("将删除 2 个未勾选的文件，确定？"));
    QCOMPARE(cleanAllText(byHash), text("将删除所有重复文件组中未勾选的 2 个文件，确定继续？"));
    QVERIFY(duplicateFooterText(byHash).contains(text("共 7 组")));
    // Contents were not compared, so nothing is up for removal.
    const DuplicateResult byName = duplicateResultFromList(duplicates(false));
    QCOMPARE(byName.unkeptCount(), 0);
    QCOMPARE(duplicateResultFromList({}).groups.size(), 0);
    DuplicateResult nothingKept = byHash;
    nothingKept.groups.first().files.first().keep = false;
    QVERIFY(cleanAllText(nothingKept).contains(text("其中 1 组的所有副本")));
}

void TestDiskAnalyzerRules::countsDuplicatesAfterRemoval()
{
    DuplicateResult result = duplicateResultFromList(duplicates(true));
    result.removePaths({text("/a/2")});
    QCOMPARE(result.groups.first().files.size(), 2);
    QCOMPARE(result.totalReclaimable, 49000);
    QCOMPARE(result.totalGroups, 7);
    result.removePaths({text("/a/3"), text("/b")});
    QVERIFY(result.groups.isEmpty());
    QCOMPARE(result.totalReclaimable, 48000);
    QCOMPARE(result.totalGroups, 6);
}

void TestDiskAnalyzerRules::fillsTreemap_data()
{
    QTest::addColumn<QVector<double>>("sizes");
    QTest::addColumn<QRectF>("area");
    QTest::addColumn<double>("worstRatio");
    const QRectF wide(10, 20, 600, 400);
    QTest::newRow("one") << QVector<double>{5} << wide << 1.51;
    QTest::newRow("textbook") << QVector<double>{6, 6, 4, 3, 2, 2, 1} << wide << 3.0;
    QTest::newRow("with zeros") << QVector<double>{0, 8, 0, 8, -1} << wide << 2.0;
    QTest::newRow("upright") << QVector<double>{4, 3, 2, 1} << QRectF(0, 0, 50, 300) << 4.0;
    QTest::newRow("unordered") << QVector<double>{1, 100, 1, 50} << wide << 1000.0;
    QTest::newRow("nothing") << QVector<double>{0, 0} << wide << 0.0;
    QTest::newRow("no room") << QVector<double>{1, 2} << QRectF(0, 0, 0, 100) << 0.0;
    QTest::newRow("huge and tiny") << QVector<double>{1e18, 1} << wide << 1e30;
}

void TestDiskAnalyzerRules::fillsTreemap()
{
    QFETCH(QVector<double>, sizes);
    QFETCH(QRectF, area);
    QFETCH(double, worstRatio);
    const QVector<QRectF> rects = squarify(sizes, area);
    QCOMPARE(rects.size(), sizes.size());
    double total = 0;
    for (double size : sizes)
        total += qMax(0.0, size);
    double covered = 0;
    for (int i = 0; i < rects.size(); ++i) {
        const QRectF rect = rects.at(i);
        if (sizes.at(i) <= 0 || area.isEmpty()) {
            QVERIFY(rect.isEmpty());
            continue;
        }
        const double wanted = sizes.at(i) / total * area.width() * area.height();
        const double got = rect.width() * rect.height();
        covered += got;
        QVERIFY(qAbs(got - wanted) < 0.001 * area.width() * area.height());
        if (rect.isEmpty()) // Too small for the numbers.
            continue;
        const QRectF room = area.adjusted(-0.01, -0.01, 0.01, 0.01);
        QVERIFY(room.contains(rect.topLeft()) && room.contains(rect.bottomRight()));
        if (got > 1)
            QVERIFY(qMax(rect.width() / rect.height(), rect.height() / rect.width()) <= worstRatio);
        for (int j = 0; j < i; ++j) {
            const QRectF both = rect.intersected(rects.at(j));
            QVERIFY(both.width() < 0.01 || both.height() < 0.01);
        }
    }
    if (total > 0 && !area.isEmpty())
        QVERIFY(qAbs(covered - area.width() * area.height()) < 1);
}

void TestDiskAnalyzerRules::walksTreemapByKeys()
{
    const QVector<QRectF> rects = {QRectF(0, 0, 60, 100), QRectF(60, 0, 40, 50),
                                   QRectF(60, 50, 40, 50)};
    QCOMPARE(neighbour(rects, 1, Direction::Down), 2);
    QCOMPARE(neighbour(rects, 2, Direction::Up), 1);
    QCOMPARE(neighbour(rects, 2, Direction::Left), 0);
    QVERIFY(neighbour(rects, 0, Direction::Right) > 0);
    QCOMPARE(neighbour(rects, 0, Direction::Left), 0);
    QCOMPARE(neighbour({}, -1, Direction::Left), -1);
}

void TestDiskAnalyzerRules::foldsSmallDirectories()
{
    DirectoryNode root;
    root.fileSize = 500;
    for (int i = 0; i < 400; ++i) {
        auto child = std::make_unique<DirectoryNode>();
        child->name = QString::number(i);
        child->totalSize = i;
        child->row = i;
        root.totalSize += i;
        root.children.push_back(std::move(child));
    }
    root.totalSize += root.fileSize;
    const QVector<TreemapItem> items = treemapItems(root);
    QVERIFY(items.size() < 150);
    QCOMPARE(items.first().kind, TreemapItem::Files);
    QCOMPARE(items.at(1).childRow, 399);
    QCOMPARE(items.last().kind, TreemapItem::Rest);
    qint64 total = 0;
    for (const TreemapItem &item : items)
        total += item.size;
    QCOMPARE(total, root.totalSize);
    QVERIFY(treemapItems(DirectoryNode()).isEmpty());
}

void TestDiskAnalyzerRules::labelsCanBeRead_data()
{
    QTest::addColumn<bool>("dark");
    QTest::newRow("light") << false;
    QTest::newRow("dark") << true;
}

void TestDiskAnalyzerRules::labelsCanBeRead()
{
    QFETCH(bool, dark);
    const ThemeColors theme = dark ? ThemeColors::dark() : ThemeColors::light();
    for (double percent : {0.5, 5.0, 15.0, 40.0, 100.0}) {
        TreemapItem item;
        item.percent = percent;
        const QColor ground = treemapColor(item, theme);
        const double contrast = ThemeColors::contrast(treemapInk(ground, theme), ground);
        QVERIFY2(contrast >= ThemeColors::kMinTextContrast,
                 qPrintable(QStringLiteral("%1%: %2").arg(percent).arg(contrast)));
    }
}

QTEST_GUILESS_MAIN(TestDiskAnalyzerRules)
#include "tst_diskanalyzerrules.moc"
