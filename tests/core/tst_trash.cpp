#include "core/descriptor.h"
#include "core/openbeneath.h"
#include "core/trash.h"
#include "support/privatemounts.h"
#include "support/temptree.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTest>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

using core::Descriptor;
using core::FileIdentity;
using testsupport::PrivateMount;

namespace {

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(no file)");
}

QString uid()
{
    return QString::number(::geteuid());
}

} // namespace

class TestTrash : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_hasMounts = testsupport::enterPrivateMounts(); }
    void init()
    {
        m_tree.reset(new TempTree);
        m_tree->dir("docs");
    }
    void keepsNamesApartAndRecordsTheOrigin();
    void leavesFilesThatItRefuses();
    void choosesTheTrashOfTheVolume_data();
    void choosesTheTrashOfTheVolume();
    void reachesNoOtherMount();
    void opensNothingThroughLinks_data();
    void opensNothingThroughLinks();

private:
    /// Puts the file into a trash at "home/Trash" of the tree.
    int put(const QString &path, const FileIdentity *expected = nullptr) const;
    QStringList trashed(const char *trash) const
    {
        return QDir(m_tree->path(trash)).entryList(QDir::Files | QDir::Hidden);
    }

    QScopedPointer<TempTree> m_tree;
    bool m_hasMounts = false;
};

int TestTrash::put(const QString &path, const FileIdentity *expected) const
{
    const QByteArray bytes = QFile::encodeName(path);
    const int slash = bytes.lastIndexOf('/');
    const Descriptor dir(::open(bytes.left(slash).constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const QByteArray name = bytes.mid(slash + 1);
    const FileIdentity now = core::identityAt(dir.get(), name.constData());
    return core::Trash(QFile::encodeName(m_tree->path("home/Trash")))
        .put(dir.get(), name, bytes, expected ? *expected : now);
}

void TestTrash::keepsNamesApartAndRecordsTheOrigin()
{
    const QString name = text("中 文%.txt");
    for (const char *content : {"first", "second"})
        QCOMPARE(put(m_tree->file(text("docs/") + name, content)), 0);
    m_tree->file("home/Trash/files/orphan", "kept");
    QCOMPARE(put(m_tree->file("docs/orphan", "third")), 0);
    const QString longName(255, QLatin1Char('n'));
    QCOMPARE(put(m_tree->file(text("docs/") + longName, "long")), 0);

    QCOMPARE(contentOf(m_tree->path(text("home/Trash/files/") + name)), QByteArray("first"));
    QCOMPARE(contentOf(m_tree->path(text("home/Trash/files/") + name + text(".2"))),
             QByteArray("second"));
    QCOMPARE(contentOf(m_tree->path("home/Trash/files/orphan")), QByteArray("kept"));
    QCOMPARE(contentOf(m_tree->path("home/Trash/files/orphan.2")), QByteArray("third"));
    QVERIFY(QDir(m_tree->path("docs")).isEmpty());
    QCOMPARE(trashed("home/Trash/info").size(), 4);

    const QList<QByteArray> lines =
        contentOf(m_tree->path(text("home/Trash/info/") + name + text(".trashinfo"))).split('\n');
    QCOMPARE(lines.at(0), QByteArray("[Trash Info]"));
    QCOMPARE(lines.at(1),
             "Path=" + QFile::encodeName(m_tree->path("docs/")) + "%E4%B8%AD%20%E6%96%87%25.txt");
    const QDateTime when = QDateTime::fromString(
        QString::fromLatin1(lines.at(2)).mid(int(sizeof("DeletionDate=")) - 1), Qt::ISODate);
    QVERIFY(qAbs(when.secsTo(QDateTime::currentDateTime())) < 600);
    struct stat info;
    QCOMPARE(::stat(QFile::encodeName(m_tree->path("home/Trash/files")).constData(), &info), 0);
    QCOMPARE(info.st_mode & 0777u, 0700u);
}

void TestTrash::leavesFilesThatItRefuses()
{
    const QString path = m_tree->file("docs/a", "content");
    FileIdentity other;
    other.inode = 1;
    struct stat info;
    QCOMPARE(::stat(QFile::encodeName(path).constData(), &info), 0);
    other.device = quint64(info.st_dev);
    QCOMPARE(put(path, &other), ESTALE);
    QCOMPARE(contentOf(path), QByteArray("content"));
    QCOMPARE(put(m_tree->path("docs/none"), &other), ENOENT);
    QCOMPARE(trashed("home/Trash/info"), QStringList());
    QCOMPARE(trashed("home/Trash/files"), QStringList());
    QCOMPARE(put(m_tree->file("home/Trash/files/old")), EALREADY);
    // Nor through a folder that leads elsewhere.
    m_tree->remove("home/Trash/files");
    m_tree->link("home/Trash/files", m_tree->dir("elsewhere"));
    QVERIFY(put(path) != 0);
    QCOMPARE(contentOf(path), QByteArray("content"));
}

void TestTrash::choosesTheTrashOfTheVolume_data()
{
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("trash");
    QTest::newRow("own") << QString() << text("volume/.Trash-%1").arg(uid());
    QTest::newRow("shared") << text("sticky") << text("volume/.Trash/%1").arg(uid());
    QTest::newRow("shared without the sticky bit")
        << text("plain") << text("volume/.Trash-%1").arg(uid());
    QTest::newRow("shared is a link") << text("link") << text("volume/.Trash-%1").arg(uid());
    QTest::newRow("own is a link") << text("own link") << QString();
}

void TestTrash::choosesTheTrashOfTheVolume()
{
    QFETCH(QString, before);
    QFETCH(QString, trash);
    if (!m_hasMounts)
        QSKIP("mounts of one's own are not allowed here");
    const PrivateMount volume(m_tree->dir("volume"));
    QVERIFY(volume.isMounted());
    if (before == text("link"))
        m_tree->link("volume/.Trash", m_tree->dir("elsewhere"));
    else if (before == text("own link"))
        m_tree->link(text("volume/.Trash-%1").arg(uid()), m_tree->dir("elsewhere"));
    else if (!before.isEmpty())
        QCOMPARE(::chmod(QFile::encodeName(m_tree->dir("volume/.Trash")).constData(),
                         before == text("sticky") ? 01777 : 0777),
                 0);
    const QString path = m_tree->file("volume/sub/a b", "content");
    if (trash.isEmpty()) {
        QCOMPARE(put(path), EXDEV);
        QCOMPARE(contentOf(path), QByteArray("content"));
        QVERIFY(QDir(m_tree->path("elsewhere")).isEmpty());
        return;
    }
    QCOMPARE(put(path), 0);
    QCOMPARE(contentOf(m_tree->path(trash + text("/files/a b"))), QByteArray("content"));
    QVERIFY(contentOf(m_tree->path(trash + text("/info/a b.trashinfo")))
                .contains("\nPath=sub/a%20b\n"));
    QCOMPARE(put(m_tree->path(trash + text("/files/a b"))), EALREADY);
}

/// A bound directory is of the same file system as the home trash, but no rename leads there.
void TestTrash::reachesNoOtherMount()
{
    if (!m_hasMounts)
        QSKIP("mounts of one's own are not allowed here");
    m_tree->file("real/sub/a", "content");
    const PrivateMount bound(m_tree->path("real"), m_tree->dir("bound"));
    QVERIFY(bound.isMounted());
    QCOMPARE(put(m_tree->path("bound/sub/a")), 0);
    const QString trash = text("real/.Trash-%1").arg(uid());
    QCOMPARE(contentOf(m_tree->path(trash + text("/files/a"))), QByteArray("content"));
    QVERIFY(contentOf(m_tree->path(trash + text("/info/a.trashinfo"))).contains("\nPath=sub/a\n"));
    QCOMPARE(trashed("home/Trash/info"), QStringList());
}

void TestTrash::opensNothingThroughLinks_data()
{
    QTest::addColumn<QByteArray>("relative");
    QTest::addColumn<int>("code");
    QTest::newRow("itself") << QByteArray() << 0;
    QTest::newRow("below") << QByteArray("dir/sub") << 0;
    QTest::newRow("link at the end") << QByteArray("dir/link") << ELOOP;
    QTest::newRow("link on the way") << QByteArray("way/sub") << ELOOP;
    QTest::newRow("file") << QByteArray("dir/file") << ENOTDIR;
    QTest::newRow("absent") << QByteArray("dir/none/sub") << ENOENT;
    QTest::newRow("upwards") << QByteArray("dir/../dir") << EINVAL;
    QTest::newRow("empty part") << QByteArray("dir//sub") << EINVAL;
}

void TestTrash::opensNothingThroughLinks()
{
    QFETCH(QByteArray, relative);
    QFETCH(int, code);
    m_tree->dir("dir/sub");
    m_tree->file("dir/file");
    m_tree->link("dir/link", m_tree->path("dir/sub"));
    m_tree->link("way", m_tree->path("dir"));
    const Descriptor root(
        ::open(QFile::encodeName(m_tree->path()).constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    errno = 0;
    const Descriptor opened(core::openDirectoryBeneath(root.get(), relative));
    QCOMPARE(opened.isOpen() ? 0 : errno, code);
}

QTEST_GUILESS_MAIN(TestTrash)
#include "tst_trash.moc"
