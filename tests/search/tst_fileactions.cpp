#include "search/fileactions.h"
#include "search/filemover.h"
#include "support/faketools.h"
#include "support/temptree.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMimeData>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const QByteArray kText = "内容 of a file\n";

QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

QStringList names(const QString &directory)
{
    return QDir(directory).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

QStringList pieces(const QString &text, QChar separator)
{
    QStringList result = text.split(separator);
    result.removeAll(QString());
    return result;
}

bool onOtherDevice(const QString &a, const QString &b)
{
    struct stat first;
    struct stat second;
    return ::stat(QFile::encodeName(a).constData(), &first) == 0 &&
           ::stat(QFile::encodeName(b).constData(), &second) == 0 && first.st_dev != second.st_dev;
}

} // namespace

class TestFileActions : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void choosesAFreeName_data();
    void choosesAFreeName();
    void givesUpAfterTheLastCounter();
    void movesWithoutReplacing();
    void leavesAFileThatIsThereAlready();
    void movesLinksAsLinks_data();
    void movesLinksAsLinks();
    void copiesWhole();
    void movesAcrossFileSystems();
    void copyNeverReplaces();
    void removesTheCopyWhenTheSourceStays();
    void refusesWhatIsNoFile();
    void triesTrashToolsInOrder_data();
    void triesTrashToolsInOrder();
    void fillsTheClipboard();

private:
    QString path(const char *name) const { return m_tree->path(QString::fromUtf8(name)); }
    QString write(const char *name, const QByteArray &bytes)
    {
        return m_tree->file(QString::fromUtf8(name), bytes);
    }

    QScopedPointer<TempTree> m_tree;
};

void TestFileActions::init()
{
    m_tree.reset(new TempTree);
    m_tree->dir(QStringLiteral("to"));
}

void TestFileActions::choosesAFreeName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("taken");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char *tag, const char *name, const char *taken,
                        const char *expected) {
        QTest::newRow(tag) << QString::fromUtf8(name)
                           << pieces(QString::fromUtf8(taken), QLatin1Char(' '))
                           << QString::fromUtf8(expected);
    };
    row("free", "a.txt", "", "a.txt");
    row("taken", "a.txt", "a.txt", "a_1.txt");
    row("taken twice", "a.txt", "a.txt a_1.txt", "a_2.txt");
    row("no suffix", "a", "a", "a_1");
    row("two suffixes", "a.tar.gz", "a.tar.gz", "a.tar_1.gz");
    row("place marker in the name", "%1%2.txt", "%1%2.txt", "%1%2_1.txt");
    row("Chinese", "报告.docx", "报告.docx", "报告_1.docx");
}

void TestFileActions::choosesAFreeName()
{
    QFETCH(QString, name);
    QFETCH(QStringList, taken);
    QFETCH(QString, expected);
    const QString directory = path("to") + QLatin1Char('/');
    for (const QString &file : qAsConst(taken))
        m_tree->file(QStringLiteral("to/") + file, "x");
    QCOMPARE(filemover::uniqueTargetPath(path("to"), name), directory + expected);
    // A dangling link takes the name as well.
    QVERIFY(QFile::link(QStringLiteral("/nowhere/at/all"), directory + expected));
    QVERIFY(filemover::uniqueTargetPath(path("to"), name) != directory + expected);
}

void TestFileActions::givesUpAfterTheLastCounter()
{
    write("to/a", "x");
    for (int i = 1; i <= 999; ++i)
        m_tree->file(QStringLiteral("to/a_%1").arg(i), "x");
    QCOMPARE(filemover::uniqueTargetPath(path("to"), QStringLiteral("a")), QString());
    write("a", kText);
    QString newPath;
    QString error;
    QVERIFY(!filemover::moveInto(path("a"), path("to"), &newPath, &error));
    QVERIFY(!error.isEmpty());
    QCOMPARE(read(path("a")), kText);
}

void TestFileActions::movesWithoutReplacing()
{
    write("a.txt", kText);
    write("to/a.txt", "other");
    QString newPath;
    QString error;
    QVERIFY2(filemover::moveInto(path("a.txt"), path("to"), &newPath, &error), qPrintable(error));
    QCOMPARE(newPath, path("to/a_1.txt"));
    QCOMPARE(read(newPath), kText);
    QCOMPARE(read(path("to/a.txt")), QByteArray("other"));
    QVERIFY(!QFileInfo::exists(path("a.txt")));
}

void TestFileActions::leavesAFileThatIsThereAlready()
{
    write("to/a.txt", kText);
    QVERIFY(QFile::link(path("to"), path("alias")));
    for (const QString &directory : {path("to"), path("to/"), path("alias")}) {
        QString newPath;
        QVERIFY(filemover::moveInto(path("to/a.txt"), directory, &newPath));
        QCOMPARE(newPath, path("to/a.txt"));
        QCOMPARE(names(path("to")), QStringList(QStringLiteral("a.txt")));
    }
}

void TestFileActions::movesLinksAsLinks_data()
{
    QTest::addColumn<bool>("byCopy");
    QTest::newRow("rename") << false;
    QTest::newRow("copy") << true;
}

void TestFileActions::movesLinksAsLinks()
{
    QFETCH(bool, byCopy);
    write("file", kText);
    QVERIFY(QFile::link(path("file"), path("link")));
    QString newPath = path("to/link");
    QString error;
    QVERIFY2(byCopy ? filemover::moveByCopy(path("link"), newPath, &error)
                    : filemover::moveInto(path("link"), path("to"), &newPath, &error),
             qPrintable(error));
    QCOMPARE(QFileInfo(newPath).symLinkTarget(), path("file"));
    QVERIFY(!QFileInfo(path("link")).isSymLink());
    QCOMPARE(read(path("file")), kText);
}

void TestFileActions::copiesWhole()
{
    // Several chunks and a rest.
    const QByteArray bytes = QByteArray("0123456789abcdef").repeated(200000) + "tail";
    write("big", bytes);
    QCOMPARE(::chmod(QFile::encodeName(path("big")).constData(), 0641), 0);
    const QDateTime time = QDateTime::fromMSecsSinceEpoch(1234567890123);
    QFile file(path("big"));
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.setFileTime(time, QFileDevice::FileModificationTime));
    file.close();

    QString error;
    QVERIFY2(filemover::moveByCopy(path("big"), path("to/big"), &error), qPrintable(error));
    QCOMPARE(read(path("to/big")), bytes);
    struct stat info;
    QCOMPARE(::stat(QFile::encodeName(path("to/big")).constData(), &info), 0);
    QCOMPARE(info.st_mode & 07777U, 0641U);
    QCOMPARE(QFileInfo(path("to/big")).lastModified(), time);
    QVERIFY(!QFileInfo::exists(path("big")));
    QCOMPARE(names(path("to")), QStringList(QStringLiteral("big")));
}

void TestFileActions::movesAcrossFileSystems()
{
    QTemporaryDir memory(QStringLiteral("/dev/shm/mvt.XXXXXX"));
    QVERIFY(memory.isValid());
    QVERIFY2(onOtherDevice(memory.path(), m_tree->path()),
             "the two folders must be on two devices");
    write("a.txt", kText);
    QVERIFY(QFile::copy(write("other", "other"), memory.filePath(QStringLiteral("a.txt"))));
    QString newPath;
    QString error;
    QVERIFY2(filemover::moveInto(path("a.txt"), memory.path(), &newPath, &error),
             qPrintable(error));
    QCOMPARE(newPath, memory.filePath(QStringLiteral("a_1.txt")));
    QCOMPARE(read(newPath), kText);
    QCOMPARE(names(memory.path()),
             QStringList({QStringLiteral("a.txt"), QStringLiteral("a_1.txt")}));
    QVERIFY(!QFileInfo::exists(path("a.txt")));
}

void TestFileActions::copyNeverReplaces()
{
    write("a", kText);
    write("to/a", "other");
    QString error;
    QVERIFY(!filemover::moveByCopy(path("a"), path("to/a"), &error));
    QVERIFY(!error.isEmpty());
    QCOMPARE(read(path("a")), kText);
    QCOMPARE(read(path("to/a")), QByteArray("other"));
    QCOMPARE(names(path("to")), QStringList(QStringLiteral("a")));
}

void TestFileActions::removesTheCopyWhenTheSourceStays()
{
    // A file that everyone may read and nobody may remove.
    QString newPath;
    QString error;
    QVERIFY(!filemover::moveInto(QStringLiteral("/proc/version"), path("to"), &newPath, &error));
    QVERIFY(!error.isEmpty());
    QCOMPARE(names(path("to")), QStringList());
    QVERIFY(QFileInfo::exists(QStringLiteral("/proc/version")));
}

void TestFileActions::refusesWhatIsNoFile()
{
    m_tree->dir(QStringLiteral("folder"));
    m_tree->fifo(QStringLiteral("pipe"));
    QString error;
    QString newPath;
    for (const char *name : {"folder", "pipe", "gone"}) {
        error.clear();
        QVERIFY(!filemover::moveByCopy(path(name), path("to/x"), &error));
        QVERIFY(!error.isEmpty());
        QCOMPARE(names(path("to")), QStringList());
    }
    for (const QString &directory : {path("to"), m_tree->path(), path("no such folder")})
        QVERIFY(!filemover::moveInto(path("gone"), directory, &newPath, &error));
}

void TestFileActions::triesTrashToolsInOrder_data()
{
    QTest::addColumn<QStringList>("present");
    QTest::addColumn<QString>("works");
    QTest::addColumn<int>("firstCall");
    QTest::addColumn<int>("calls");
    QTest::addColumn<bool>("done");
    const QStringList all = {QStringLiteral("gio"), QStringLiteral("trash-put"),
                             QStringLiteral("kioclient5"), QStringLiteral("kioclient")};
    for (int i = 0; i < all.size(); ++i)
        QTest::newRow(qPrintable(all.at(i))) << all << all.at(i) << 0 << i + 1 << true;
    QTest::newRow("all fail") << all << QString() << 0 << 4 << false;
    QTest::newRow("missing ones are passed over")
        << QStringList(all.mid(3)) << all.at(3) << 3 << 1 << true;
    QTest::newRow("no tool at all") << QStringList() << QString() << 0 << 0 << false;
}

void TestFileActions::triesTrashToolsInOrder()
{
    QFETCH(QStringList, present);
    QFETCH(QString, works);
    QFETCH(int, firstCall);
    QFETCH(int, calls);
    QFETCH(bool, done);
    const QString file = write("一 个.txt", kText);
    const QString trash = QStringLiteral("trash:/");
    const QString move = QStringLiteral("move");
    const QList<QStringList> expected = {{QStringLiteral("gio"), QStringLiteral("trash"), file},
                                         {QStringLiteral("trash-put"), file},
                                         {QStringLiteral("kioclient5"), move, file, trash},
                                         {QStringLiteral("kioclient"), move, file, trash}};
    FakeTools tools;
    for (const QString &tool : qAsConst(present)) {
        QString error;
        QVERIFY2(tools.add(tool, tool == works ? "exit 0" : "exit 3", &error), qPrintable(error));
    }
    const QByteArray searchPath = qgetenv("PATH");
    qputenv("PATH", QFile::encodeName(tools.dir()));
    const bool moved = fileactions::putIntoTrash(file);
    qputenv("PATH", searchPath);
    QCOMPARE(moved, done);
    QCOMPARE(tools.calls(), expected.mid(firstCall, calls));
}

void TestFileActions::fillsTheClipboard()
{
    const QScopedPointer<QMimeData> data(
        fileactions::clipboardData(QStringLiteral("/tmp/一 个#1%.txt")));
    QCOMPARE(data->text(), QStringLiteral("/tmp/一 个#1%.txt"));
    QCOMPARE(data->urls(), QList<QUrl>({QUrl::fromLocalFile(QStringLiteral("/tmp/一 个#1%.txt"))}));
    QCOMPARE(data->data(QStringLiteral("x-special/gnome-copied-files")),
             QByteArray("copy\nfile:///tmp/%E4%B8%80%20%E4%B8%AA%231%25.txt"));
}

QTEST_GUILESS_MAIN(TestFileActions)
#include "tst_fileactions.moc"
