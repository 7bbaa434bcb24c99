#include "search/indexbuilder.h"
#include "support/temptree.h"

#include <QtTest>

/// A program of its own, since each tool is looked for only once in a process.
class TestMissingTools : public QObject
{
    Q_OBJECT

private slots:
    void reportsEachOnceAndGoesOn();
};

void TestMissingTools::reportsEachOnceAndGoesOn()
{
    TempTree tree;
    tree.script("bin/catdoc", "echo words\n");
    tree.file("bin/unrtf", "not executable");
    tree.file("r/a.pdf", "%PDF");
    tree.file("r/b.docx", "PK");
    qputenv("PATH", QFile::encodeName(tree.path("bin")));

    IndexBuilder builder(tree.path("index.db"));
    QList<QStringList> reports;
    QString message;
    connect(&builder, &IndexBuilder::toolsMissing, this,
            [&reports](const QStringList &lines) { reports.append(lines); });
    connect(&builder, &IndexBuilder::finished, this,
            [&message](bool, const QString &text) { message = text; });
    const auto build = [&](const QStringList &ftsExtensions) {
        builder.startBuild({tree.path("r")}, {}, {}, ftsExtensions, 16384);
    };

    build({});
    QCOMPARE(reports.size(), 0);
    build({QStringLiteral("mp3")}); // nothing to extract, so nothing is missed
    QCOMPARE(reports.size(), 0);
    build({QStringLiteral("pdf"), QStringLiteral("docx")});
    QCOMPARE(message, QStringLiteral("索引构建完成，共 2 个文件"));
    const QStringList expected{
        QStringLiteral("pdftotext 缺失（安装 poppler-utils 以支持 PDF）"),
        QStringLiteral("xls2csv 缺失（安装 catdoc 以支持 XLS）"),
        QStringLiteral("catppt 缺失（安装 catdoc 以支持 PPT）"),
        QStringLiteral("antiword 缺失（安装 antiword 以支持 DOC (备选)）"),
        QStringLiteral("unrtf 缺失（安装 unrtf 以支持 RTF）"),
        QStringLiteral("unzip 缺失（安装 unzip 以支持 DOCX/XLSX/PPTX/ODT/EPUB/WPS/ET/DPS）")};
    QCOMPARE(reports.size(), 1);
    QCOMPARE(reports.first(), expected);
}

QTEST_GUILESS_MAIN(TestMissingTools)
#include "tst_missingtools.moc"
