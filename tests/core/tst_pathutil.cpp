#include "core/pathutil.h"

#include <QTest>

class TestPathUtil : public QObject
{
    Q_OBJECT

private slots:
    void isInside_data();
    void isInside();
    void cleanedPath_data();
    void cleanedPath();
};

void TestPathUtil::isInside_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("dir");
    QTest::addColumn<bool>("expected");
    QTest::newRow("below") << "/a/b/c"
                           << "/a/b" << true;
    QTest::newRow("itself") << "/a/b"
                            << "/a/b" << true;
    QTest::newRow("itself with a separator") << "/a/b/"
                                             << "/a/b" << true;
    QTest::newRow("directory with a separator") << "/a/b"
                                                << "/a/b/" << true;
    QTest::newRow("same beginning of the name") << "/a/bc"
                                                << "/a/b" << false;
    QTest::newRow("above") << "/a"
                           << "/a/b" << false;
    QTest::newRow("root holds all") << "/a"
                                    << "/" << true;
    QTest::newRow("root itself") << "/"
                                 << "/" << true;
    QTest::newRow("climbs out") << "/a/b/../c"
                                << "/a/b" << false;
    QTest::newRow("climbs out and back") << "/a/b/../b/c"
                                         << "/a/b" << true;
    QTest::newRow("doubled separators") << "/a//b///c"
                                        << "/a/b" << true;
    QTest::newRow("dot segments") << "/a/./b/./c"
                                  << "/a/b/." << true;
    QTest::newRow("case counts") << "/A/b"
                                 << "/a" << false;
    QTest::newRow("no path") << ""
                             << "/" << false;
    QTest::newRow("no directory") << "/a"
                                  << "" << false;
    QTest::newRow("relative is not absolute") << "a/b"
                                              << "/a" << false;
    QTest::newRow("Chinese names") << "/家/文档/一"
                                   << "/家/文档" << true;
}

void TestPathUtil::isInside()
{
    QFETCH(QString, path);
    QFETCH(QString, dir);
    QTEST(core::isInside(path, dir), "expected");
}

void TestPathUtil::cleanedPath_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");
    QTest::newRow("blank at the end of a name") << "/a//b "
                                                << "/a/b ";
    QTest::newRow("line feed at the end of a name") << "/a/b\n"
                                                    << "/a/b\n";
    QTest::newRow("blank folder") << "/a/ /b/"
                                  << "/a/ /b";
    QTest::newRow("typed") << " /a/./b/ "
                           << "/a/b";
    QTest::newRow("relative") << "a/.. "
                              << ".";
    QTest::newRow("blanks only") << " \t"
                                 << "";
}

void TestPathUtil::cleanedPath()
{
    QFETCH(QString, path);
    QTEST(core::cleanedPath(path), "expected");
}

QTEST_GUILESS_MAIN(TestPathUtil)
#include "tst_pathutil.moc"
