#include "recoverypagesfixture.h"
#include "support/modaldriver.h"
#include "ui/pages/recoveryprogresspage.h"
#include "ui/pages/recoveryprogresspage/recoveryreport.h"

#include <QFile>
#include <QJsonArray>
#include <QPushButton>
#include <QTemporaryDir>

using namespace recoveryprogress;
using namespace testsupport;
using recoveryresult::FileResult;

namespace {

FileResult fileOf(const char *id, const QString &name, const char *status)
{
    FileResult file;
    file.fileId = QLatin1String(id);
    file.name = name;
    file.status = QLatin1String(status);
    return file;
}

QJsonObject detailOf(const QString &hash)
{
    return {{QStringLiteral("fileStatuses"),
             QJsonArray{QJsonObject{{QStringLiteral("fileId"), QStringLiteral("a")},
                                    {QStringLiteral("status"), QStringLiteral("succeeded")},
                                    {QStringLiteral("originalPath"), QStringLiteral("/家/a,b.txt")},
                                    {QStringLiteral("outputPath"), QStringLiteral("/out/a,b.txt")},
                                    {QStringLiteral("sha256"), hash},
                                    {QStringLiteral("writtenBytes"), 5000000000.0}}}}};
}

} // namespace

/// What can be done with a recovery once it is through: its report, its directory.
class TestRecoveryReport : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { useDarkTheme(); }
    void quotes_data();
    void quotes();
    void rows();
    void countsSkipped();
    void opensTheDirectory();
    void saves();
};

void TestRecoveryReport::quotes_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("field");
    QTest::newRow("plain") << QStringLiteral("a b.txt") << QByteArray("a b.txt");
    QTest::newRow("not Latin") << QStringLiteral("报告") << QByteArray("报告");
    QTest::newRow("comma") << QStringLiteral("a,b") << QByteArray("\"a,b\"");
    QTest::newRow("quote") << QStringLiteral("say \"hi\"") << QByteArray("\"say \"\"hi\"\"\"");
    QTest::newRow("line ends") << QStringLiteral("a\r\nb") << QByteArray("\"a\r\nb\"");
    QTest::newRow("outer blanks") << QStringLiteral(" a ") << QByteArray("\" a \"");
    QTest::newRow("empty") << QString() << QByteArray();
}

void TestRecoveryReport::quotes()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, field);
    ReportRow row;
    row.name = name;
    row.sha256 = QStringLiteral("ff");
    QCOMPARE(reportCsv({row}), QByteArray("\xEF\xBB\xBF"
                                          "文件名,原路径,保存为,结果,说明,字节数,SHA-256\r\n") +
                                   field + ",,,,,,ff\r\n");
}

void TestRecoveryReport::rows()
{
    const QVector<ReportRow> rows = reportRows({fileOf("a", QStringLiteral("a,b.txt"), ""),
                                                fileOf("b", QStringLiteral("b"), "skipped"),
                                                fileOf("c", QStringLiteral("c"), "")},
                                               detailOf(QStringLiteral("ab12")), false);
    QCOMPARE(rows.size(), 3);
    QCOMPARE(rows[0].result, QStringLiteral("已恢复"));
    QCOMPARE(rows[0].originalPath, QStringLiteral("/家/a,b.txt"));
    QCOMPARE(rows[0].outputPath, QStringLiteral("/out/a,b.txt"));
    QCOMPARE(rows[0].sha256, QStringLiteral("ab12"));
    QCOMPARE(rows[0].writtenBytes, QStringLiteral("5000000000"));
    QCOMPARE(rows[1].result, QStringLiteral("已跳过"));
    QVERIFY(!rows[1].conclusion.isEmpty() && rows[1].sha256.isEmpty());
    QCOMPARE(rows[2].result, QStringLiteral("未完成"));
    QVERIFY(rows[2].conclusion.isEmpty());
}

void TestRecoveryReport::countsSkipped()
{
    RecoveryProgressPage page;
    page.initForRecovery(QString(), QStringLiteral("t"), QString(), QStringLiteral("/out"), 2, {});
    QCOMPARE(textOf(&page, "RecoverySkippedCount"), QStringLiteral("已跳过\n0"));
    page.updateFileStatus(QStringLiteral("a"), QStringLiteral("skipped"), QString(), {});
    page.updateFileStatus(QStringLiteral("a"), QStringLiteral("success"), QString(), {});
    QCOMPARE(textOf(&page, "RecoverySkippedCount"), QStringLiteral("已跳过\n1"));
    QCOMPARE(textOf(&page, "RecoverySucceededCount"), QStringLiteral("已恢复\n0"));
    page.onRecoveryCompleted({{QStringLiteral("succeeded"), 1}});
    QCOMPARE(textOf(&page, "RecoverySkippedCount"), QStringLiteral("已跳过\n1"));
}

void TestRecoveryReport::opensTheDirectory()
{
    RecoveryProgressPage page;
    page.resize(1024, 700);
    page.show();
    QStringList opened;
    page.setDirectoryOpener([&opened](const QString &directory) {
        opened.append(directory);
        return opened.size() < 3;
    });
    auto *target = child<QLabel>(&page, "RecoveryTargetPath");
    QTest::mouseClick(target, Qt::LeftButton);
    QVERIFY(opened.isEmpty());
    page.initForRecovery(QString(), QStringLiteral("t"), QString(), QStringLiteral("/out"), 1, {});
    QVERIFY(!child<QPushButton>(&page, "OpenRecoveryFolderButton")->isVisible());
    QTest::mouseClick(target, Qt::LeftButton);
    page.onRecoveryCompleted({});
    clickOn(&page, "OpenRecoveryFolderButton");
    QCOMPARE(opened.join(QLatin1Char(' ')), QStringLiteral("/out /out"));
    // Without a file manager there is a word about it.
    support::ModalDriver driver([](QWidget *dialog) {
        QTest::mouseClick(dialog->findChild<QPushButton *>(QStringLiteral("NoticeOkBtn")),
                          Qt::LeftButton);
    });
    QTest::keyClick(target, Qt::Key_Return);
    QVERIFY(driver.handled());
}

void TestRecoveryReport::saves()
{
    QTemporaryDir directory;
    RecoveryProgressPage page;
    page.resize(1024, 700);
    page.show();
    page.initForRecovery(QString(), QStringLiteral("t"), QString(), directory.path(), 1,
                         {{QStringLiteral("a"), QStringLiteral("a,b.txt")}});
    page.onRecoveryCompleted({});
    page.setRecoveryTaskDetail(detailOf(QStringLiteral("ab12")));
    QString suggested;
    QString answer = directory.filePath(QStringLiteral("report"));
    page.setSaveChooser([&](QWidget *, const QString &path) {
        suggested = path;
        return answer;
    });
    const auto save = [&page] {
        QString title;
        support::ModalDriver driver([&title](QWidget *dialog) {
            title = textOf(dialog, "NoticeTitle");
            QTest::mouseClick(dialog->findChild<QPushButton *>(QStringLiteral("NoticeOkBtn")),
                              Qt::LeftButton);
        });
        clickOn(&page, "SaveRecoveryReportButton");
        const bool told = QTest::qWaitFor([&driver] { return driver.handled(); }, 30000);
        return told ? title : QStringLiteral("no notice");
    };
    QCOMPARE(save(), QStringLiteral("保存完成"));
    QVERIFY(suggested.startsWith(directory.path() + QStringLiteral("/恢复报告_")));
    QFile file(answer + QStringLiteral(".csv"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.readAll().endsWith("\"a,b.txt\",\"/家/a,b.txt\",\"/out/a,b.txt\",已恢复,"
                                    "恢复已完成，未检测到异常。,5000000000,ab12\r\n"));
    answer = directory.filePath(QStringLiteral("none/report.csv"));
    QCOMPARE(save(), QStringLiteral("保存失败"));
}

QTEST_MAIN(TestRecoveryReport)
#include "tst_recoveryreport.moc"
