// Deletions by programs as people run them, with the library preloaded.
#include "guardharness.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace guard_test;

class TestGuardPrograms : public QObject
{
    Q_OBJECT

private slots:
    void keepsWhatProgramsDelete_data();
    void keepsWhatProgramsDelete();
    void keepsOddNames_data();
    void keepsOddNames();
    void keepsOddFiles_data();
    void keepsOddFiles();
    void doesNotKeep_data();
    void doesNotKeep();
    void keepsReplacedFilesOnRequest();
    void followsTheConfiguration();
    void knowsWhereTrashCameFrom_data();
    void knowsWhereTrashCameFrom();
};

// In `documents()`: %d is that folder.
void TestGuardPrograms::keepsWhatProgramsDelete_data()
{
    QTest::addColumn<QString>("command");
    QTest::newRow("rm") << QStringLiteral("rm a.txt b/c.doc");
    QTest::newRow("rm by absolute path") << QStringLiteral("rm '%d/a.txt' '%d/b/c.doc'");
    QTest::newRow("rm -rf") << QStringLiteral("rm -rf a.txt b");
    QTest::newRow("find -delete") << QStringLiteral("find . -type f -delete");
    QTest::newRow("unlink") << QStringLiteral("unlink a.txt && unlink ./b/../b/c.doc");
    QTest::newRow("perl") << QStringLiteral("perl -e 'unlink(\"a.txt\", \"b/c.doc\") == 2 or die'");
    QTest::newRow("python os.unlink")
        << QStringLiteral("python3 -c 'import os; os.unlink(\"a.txt\"); os.remove(\"b/c.doc\")'");
    QTest::newRow("python shutil.rmtree")
        << QStringLiteral("python3 -c 'import shutil; shutil.rmtree(\"%d\")'");
    QTest::newRow("gio remove") << QStringLiteral("gio remove a.txt b/c.doc");
    QTest::newRow("rsync --delete")
        << QStringLiteral("mkdir '%d/../empty' && rsync -r --delete '%d/../empty/' '%d/'");
    QTest::newRow("git clean") << QStringLiteral("git init -q . && git clean -q -fdx");
    QTest::newRow("a Qt program") << QStringLiteral("'" GUARD_QTPROGRAM "' a.txt b/c.doc");
    QTest::newRow("mv to another file system") << QStringLiteral(
        "mv a.txt /dev/shm/mvt$$ && mv b/c.doc /dev/shm/mvt$$ && rm /dev/shm/mvt$$");
}

void TestGuardPrograms::keepsWhatProgramsDelete()
{
    QFETCH(QString, command);
    const QString program = command.section(QLatin1Char(' '), 0, 0);
    if (!program.startsWith(QLatin1Char('\'')) && program != QLatin1String("mkdir") &&
        QStandardPaths::findExecutable(program).isEmpty())
        QSKIP("The program is not installed.");
    if (command.contains(QLatin1String("rsync")) &&
        QStandardPaths::findExecutable(QStringLiteral("rsync")).isEmpty())
        QSKIP("rsync is not installed.");

    GuardHarness guard;
    QString error;
    QVERIFY2(guard.start(&error), qPrintable(error));
    const QByteArray a = guard.documents() + "/a.txt";
    const QByteArray c = guard.documents() + "/b/c.doc";
    QVERIFY(guard.write(a, "first") && guard.write(c, QByteArray(100000, 'x')));
    command.replace(QLatin1String("%d"), text(guard.documents()));
    QCOMPARE(guard.run(QStringLiteral("sh"), {QStringLiteral("-c"), command}), 0);

    QVERIFY(!exists(a) && !exists(c));
    QVERIFY2(guard.waitForKept(2), guard.output().constData());
    QCOMPARE(guard.keeper().filesAt(a).value(0).content, QByteArray("first"));
    QCOMPARE(guard.keeper().filesAt(c).value(0).content, QByteArray(100000, 'x'));
    QCOMPARE(guard.output(), QByteArray());
    QCOMPARE(guard.spooled(), QByteArray());
}

void TestGuardPrograms::keepsOddNames_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("blank and quotes") << QByteArray("a 'b' \"c\".txt");
    QTest::newRow("line break") << QByteArray("a\nb.txt");
    QTest::newRow("leading dash") << QByteArray("-rf.txt");
    QTest::newRow("Chinese") << QByteArray("年度 报告.txt");
    QTest::newRow("no UTF-8") << QByteArray("\xff\xfe-\xc3.txt");
    QTest::newRow("upper case") << QByteArray("A.TXT");
    QTest::newRow("double extension") << QByteArray("a.tar.gz");
    QTest::newRow("longest") << QByteArray(251, 'n') + ".txt";
    QTest::newRow("hidden") << QByteArray(".a.txt");
    QTest::newRow("several dots") << QByteArray("..a..txt");
}

void TestGuardPrograms::keepsOddNames()
{
    QFETCH(QByteArray, name);
    GuardHarness guard;
    QString error;
    QVERIFY2(guard.start(&error), qPrintable(error));
    const QByteArray path = guard.documents() + '/' + name;
    const int file = ::open(path.constData(), O_WRONLY | O_CREAT, 0600);
    QVERIFY(file >= 0 && ::close(file) == 0);
    QCOMPARE(guard.run(QStringLiteral("find"), {QStringLiteral("."), QStringLiteral("-type"),
                                                QStringLiteral("f"), QStringLiteral("-delete")}),
             0);
    QVERIFY(guard.waitForKept(1));
    QCOMPARE(guard.keeper().files().first().path, path);
}

void TestGuardPrograms::keepsOddFiles_data()
{
    QTest::addColumn<QString>("make");
    QTest::addColumn<qint64>("size");
    QTest::newRow("empty") << QStringLiteral(": > x.txt") << qint64(0);
    QTest::newRow("sparse") << QStringLiteral("truncate -s 5G x.txt") << qint64(5) * 1073741824;
    QTest::newRow("mode 000") << QStringLiteral("echo a > x.txt; chmod 0 x.txt") << qint64(2);
    QTest::newRow("another name left")
        << QStringLiteral("echo a > y.bin; ln y.bin x.txt") << qint64(2);
    QTest::newRow("opened by others")
        << QStringLiteral("echo a > x.txt; exec 5< x.txt") << qint64(2);
}

void TestGuardPrograms::keepsOddFiles()
{
    QFETCH(QString, make);
    QFETCH(qint64, size);
    GuardHarness guard;
    QString error;
    qint64 seen = -1;
    const QByteArray path = guard.documents() + "/x.txt";
    guard.keeper().onKeep = [&seen, path] {
        // What was refused may be offered again, from the spool, after the file has gone.
        struct stat status = {};
        if (::stat(path.constData(), &status) == 0)
            seen = qint64(status.st_size);
    };
    QVERIFY2(guard.start(&error), qPrintable(error));
    guard.keeper().refuse(size > 1000000); // Nothing here reads 5 GiB.
    QCOMPARE(guard.run(QStringLiteral("sh"),
                       {QStringLiteral("-c"), make + QStringLiteral("; rm -f x.txt; rm -f y.bin")}),
             0);
    QVERIFY(!exists(path));
    QCOMPARE(seen, size); // Asked while the file was there.
    if (size < 1000000)
        QVERIFY(guard.waitForKept(1));
}

void TestGuardPrograms::doesNotKeep_data()
{
    QTest::addColumn<QString>("command");
    QTest::newRow("other extension") << QStringLiteral("echo a > a.bin && rm a.bin");
    QTest::newRow("no extension") << QStringLiteral("echo a > txt && rm txt");
    QTest::newRow("only an extension") << QStringLiteral("echo a > .txt && rm .txt");
    QTest::newRow("other folder") << QStringLiteral(
        "echo a > ../elsewhere/a.txt && rm ../elsewhere/a.txt");
    QTest::newRow("folder with the same beginning") << QStringLiteral(
        "mkdir ../documents2 && echo a > ../documents2/a.txt && rm -r ../documents2");
    QTest::newRow("left-out folder")
        << QStringLiteral("mkdir cache && echo a > cache/a.txt && rm -r cache");
    QTest::newRow("left-out name")
        << QStringLiteral("mkdir -p x/.git/y && echo a > x/.git/y/a.txt && rm -r x");
    QTest::newRow("folder named so") << QStringLiteral("mkdir a.txt && rm -r a.txt");
    QTest::newRow("symbolic link")
        << QStringLiteral("echo a > a.bin && ln -s a.bin a.txt && rm a.txt");
    QTest::newRow("FIFO") << QStringLiteral("mkfifo a.txt && rm a.txt");
    QTest::newRow("mv over") << QStringLiteral("echo a > a.txt; echo b > b.txt; mv b.txt a.txt");
    QTest::newRow("sed -i") << QStringLiteral("echo a > a.txt && sed -i s/a/b/ a.txt");
    QTest::newRow("saving by rename")
        << QStringLiteral("echo a > a.txt && python3 -c 'import os\n"
                          "open(\"n.tmp\", \"w\").write(\"b\"); os.replace(\"n.tmp\", \"a.txt\")'");
    QTest::newRow("missing file") << QStringLiteral(
        "! rm missing.txt 2>&- && ! rm /missing/x.txt 2>&-");
    QTest::newRow("mv within") << QStringLiteral("echo a > a.txt && mkdir d && mv a.txt d/b.txt");
}

void TestGuardPrograms::doesNotKeep()
{
    QFETCH(QString, command);
    GuardHarness guard;
    QString error;
    bool isAsked = false;
    guard.keeper().onKeep = [&isAsked] {
        isAsked = true;
    };
    QVERIFY2(guard.start(&error), qPrintable(error));
    QCOMPARE(guard.run(QStringLiteral("sh"), {QStringLiteral("-c"), command}), 0);
    QCOMPARE(guard.output(), QByteArray());
    // One that is kept, after all others have been asked for.
    QVERIFY(!isAsked);
    QVERIFY(guard.write(guard.documents() + "/last.txt", "x"));
    QCOMPARE(guard.run(QStringLiteral("rm"), {QStringLiteral("last.txt")}), 0);
    QVERIFY(guard.waitForKept(1));
}

void TestGuardPrograms::keepsReplacedFilesOnRequest()
{
    GuardHarness guard;
    guard.protection.keepsReplaced = true;
    QString error;
    QVERIFY2(guard.start(&error), qPrintable(error));
    const QByteArray path = guard.documents() + "/a.txt";
    QVERIFY(guard.write(path, "old") && guard.write(guard.documents() + "/n", "new"));
    QCOMPARE(guard.run(QStringLiteral("mv"), {QStringLiteral("n"), QStringLiteral("a.txt")}), 0);
    QVERIFY(guard.waitForKept(1));
    const KeptFile kept = guard.keeper().files().first();
    QCOMPARE(kept.content, QByteArray("old"));
    QCOMPARE(kept.path, path);
    QVERIFY(kept.isReplaced);
}

void TestGuardPrograms::followsTheConfiguration()
{
    GuardHarness guard;
    QString error;
    QVERIFY2(guard.start(&error), qPrintable(error));
    // One process throughout: it has mapped what was true at its first deletion.
    QProcess shell;
    shell.setProcessEnvironment(guard.environment());
    shell.start(QStringLiteral("python3"),
                {QStringLiteral("-c"), QStringLiteral("import os, sys\n"
                                                      "for line in sys.stdin:\n"
                                                      "    os.unlink(line[:-1])\n"
                                                      "    print('done', flush=True)\n")});
    const auto remove = [&](const QByteArray &path) {
        if (!guard.write(path, "x"))
            return false;
        shell.write(path + '\n');
        while (!shell.canReadLine() && shell.waitForReadyRead()) {
        }
        return shell.readLine() == "done\n" && !exists(path);
    };
    QVERIFY(remove(guard.documents() + "/a.txt"));
    QVERIFY(guard.waitForKept(1));
    guard.protection.directories = {guard.elsewhere()};
    guard.protection.extensions = {"bin"};
    QVERIFY2(guard.hook().openFor(guard.protection, &error), qPrintable(error));
    QVERIFY(remove(guard.documents() + "/b.txt"));
    QVERIFY(remove(guard.elsewhere() + "/b.bin"));
    QVERIFY(guard.waitForKept(2));
    guard.protection.isEnabled = false;
    QVERIFY2(guard.hook().openFor(guard.protection, &error), qPrintable(error));
    QVERIFY(remove(guard.elsewhere() + "/c.bin"));
    guard.protection.isEnabled = true;
    QVERIFY2(guard.hook().openFor(guard.protection, &error), qPrintable(error));
    QVERIFY(remove(guard.elsewhere() + "/d.bin"));
    QVERIFY(guard.waitForKept(3));
    guard.hook().withdraw();
    QVERIFY(remove(guard.elsewhere() + "/e.bin"));
    QCOMPARE(guard.keeper().count(), 3);
    QCOMPARE(guard.spooled(), QByteArray());
    shell.closeWriteChannel();
    QVERIFY(shell.waitForFinished());
}

// %t is the trash. Both ways of emptying rename first, so that the name says nothing.
void TestGuardPrograms::knowsWhereTrashCameFrom_data()
{
    QTest::addColumn<QString>("command");
    QTest::newRow("rm") << QStringLiteral("rm -r %t/files/* %t/info/*");
    QTest::newRow("expunged, absolute") << QStringLiteral(
        "mkdir %t/expunged; mv %t/files/a.txt %t/expunged/25; "
        "mv %t/files/b %t/expunged/26; rm %t/info/*; rm -r %t/expunged/25 %t/expunged/26");
    QTest::newRow("expunged, in the folder") << QStringLiteral(
        "mkdir %t/expunged; mv %t/files/a.txt %t/expunged/25; "
        "mv %t/files/b %t/expunged/26; rm %t/info/*; cd %t/expunged && rm -r 25 26");
    QTest::newRow("find") << QStringLiteral("rm %t/info/*; find %t -type f -delete");
}

void TestGuardPrograms::knowsWhereTrashCameFrom()
{
    QFETCH(QString, command);
    if (QStandardPaths::findExecutable(QStringLiteral("gio")).isEmpty())
        QSKIP("gio is not installed.");
    GuardHarness guard;
    QString error;
    QVERIFY2(guard.start(&error), qPrintable(error));
    const QByteArray a = guard.documents() + "/a.txt";
    const QByteArray c = guard.documents() + "/b/c.doc";
    QVERIFY(guard.write(a, "a") && guard.write(c, "c"));
    QVERIFY(guard.write(guard.elsewhere() + "/x.txt", "not protected"));
    // Programs refuse to trash what they take for a system folder, such as all below /tmp.
    for (const QByteArray &item : {QByteArray("a.txt"), QByteArray("b")}) {
        QVERIFY(guard.write(guard.trash() + "/info/" + item + ".trashinfo",
                            "[Trash Info]\nPath=" + guard.documents() + '/' + item +
                                "\nDeletionDate=2024-01-01T00:00:00\n"));
        QVERIFY(QDir().mkpath(text(guard.trash() + "/files")));
        QVERIFY(QFile::rename(text(guard.documents() + '/' + item),
                              text(guard.trash() + "/files/" + item)));
    }
    command.replace(QLatin1String("%t"), text(guard.trash()));
    QTRY_COMPARE(guard.run(QStringLiteral("true"), {}), 0);
    QCOMPARE(guard.run(QStringLiteral("sh"), {QStringLiteral("-c"), command}), 0);
    QVERIFY2(guard.waitForKept(2), guard.output().constData());
    QCOMPARE(guard.keeper().filesAt(a).size(), 1);
    QCOMPARE(guard.keeper().filesAt(c).size(), 1);
}

QTEST_GUILESS_MAIN(TestGuardPrograms)
#include "tst_guard_programs.moc"
