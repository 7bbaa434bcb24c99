#include "search/fileactions.h"
#include "search/filemover.h"

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

bool write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

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
    void reportsAMissingSource();
    void triesTrashToolsInOrder_data();
    void triesTrashToolsInOrder();
    void fillsTheClipboard();

private:
    QString path(const char *name) const { return m_dir->filePath(QString::fromUtf8(name)); }

    QScopedPointer<QTemporaryDir> m_dir;
};

void TestFileActions::init()
{
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
    QVERIFY(QDir().mkdir(path("to")));
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
        QVERIFY(write(directory + file, "x"));
    QCOMPARE(filemover::uniqueTargetPath(path("to"), name), directory + expected);
    // A dangling link takes the name as well.
    QVERIFY(QFile::link(QStringLiteral("/nowhere/at/all"), directory + expected));
    QVERIFY(filemover::uniqueTargetPath(path("to"), name) != directory + expected);
}

void TestFileActions::givesUpAfterTheLastCounter()
{
    QVERIFY(write(path("to/a"), "x"));
    for (int i = 1; i <= 999; ++i)
        QVERIFY(write(path("to/a_%1").arg(i), "x"));
    QCOMPARE(filemover::uniqueTargetPath(path("to"), QStringLiteral("a")), QString());
    QVERIFY(write(path("a"), kText));
    QString newPath;
    QString error;
    QVERIFY(!filemover::moveInto(path("a"), path("to"), &newPath, &error));
    QVERIFY(!error.isEmpty());
    QCOMPARE(read(path("a")), kText);
}

void TestFileActions::movesWithoutReplacing()
{
    QVERIFY(write(path("a.txt"), kText));
    QVERIFY(write(path("to/a.txt"), "other"));
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
    QVERIFY(write(path("to/a.txt"), kText));
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
    QVERIFY(write(path("file"), kText));
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
    QVERIFY(write(path("big"), bytes));
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
    QVERIFY2(onOtherDevice(memory.path(), m_dir->path()), "the two folders must be on two devices");
    QVERIFY(write(path("a.txt"), kText));
    QVERIFY(write(memory.filePath(QStringLiteral("a.txt")), "other"));
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
    QVERIFY(write(path("a"), kText));
    QVERIFY(write(path("to/a"), "other"));
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
    QVERIFY(QDir().mkdir(path("folder")));
    QCOMPARE(::mkfifo(QFile::encodeName(path("pipe")).constData(), 0600), 0);
    for (const char *name : {"folder", "pipe"}) {
        QString error;
        QVERIFY(!filemover::moveByCopy(path(name), path("to/x"), &error));
        QVERIFY(!error.isEmpty());
        QCOMPARE(names(path("to")), QStringList());
    }
}

void TestFileActions::reportsAMissingSource()
{
    for (const QString &directory : {path("to"), m_dir->path(), path("no such folder")}) {
        QString newPath;
        QString error;
        QVERIFY(!filemover::moveInto(path("gone"), directory, &newPath, &error));
        QVERIFY(!error.isEmpty());
    }
}

void TestFileActions::triesTrashToolsInOrder_data()
{
    QTest::addColumn<QStringList>("present");
    QTest::addColumn<QString>("works");
    QTest::addColumn<QStringList>("calls");
    QTest::addColumn<bool>("done");
    const QStringList all = {QStringLiteral("gio"), QStringLiteral("trash-put"),
                             QStringLiteral("kioclient5"), QStringLiteral("kioclient")};
    const QStringList calls = {QStringLiteral("gio [trash] [FILE]"),
                               QStringLiteral("trash-put [FILE]"),
                               QStringLiteral("kioclient5 [move] [FILE] [trash:/]"),
                               QStringLiteral("kioclient [move] [FILE] [trash:/]")};
    for (int i = 0; i < all.size(); ++i)
        QTest::newRow(qPrintable(all.at(i)))
            << all << all.at(i) << QStringList(calls.mid(0, i + 1)) << true;
    QTest::newRow("all fail") << all << QString() << calls << false;
    QTest::newRow("missing ones are passed over")
        << QStringList(all.mid(3)) << all.at(3) << QStringList(calls.mid(3)) << true;
    QTest::newRow("no tool at all") << QStringList() << QString() << QStringList() << false;
}

void TestFileActions::triesTrashToolsInOrder()
{
    QFETCH(QStringList, present);
    QFETCH(QString, works);
    QFETCH(QStringList, calls);
    QFETCH(bool, done);
    QVERIFY(QDir().mkdir(path("bin")));
    const QString file = path("一 个.txt");
    for (const QString &tool : qAsConst(present)) {
        const QString script =
            QStringLiteral("#!/bin/sh\nprintf '%s' \"${0##*/}\" >> '%1'\n"
                           "for a in \"$@\"; do printf ' [%s]' \"$a\" >> '%1'; done\n"
                           "echo >> '%1'\nexit %2\n")
                .arg(path("calls"), QString::number(tool == works ? 0 : 3));
        QVERIFY(write(path("bin/") + tool, script.toUtf8()));
        QVERIFY(QFile::setPermissions(path("bin/") + tool, QFileDevice::ReadOwner |
                                                               QFileDevice::WriteOwner |
                                                               QFileDevice::ExeOwner));
    }
    const QByteArray searchPath = qgetenv("PATH");
    qputenv("PATH", QFile::encodeName(path("bin")));
    const bool moved = fileactions::moveToTrash(file);
    qputenv("PATH", searchPath);

    QCOMPARE(moved, done);
    const QString log =
        QFileInfo::exists(path("calls")) ? QString::fromUtf8(read(path("calls"))) : QString();
    QCOMPARE(pieces(QString(log).replace(file, QStringLiteral("FILE")), QLatin1Char('\n')), calls);
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
