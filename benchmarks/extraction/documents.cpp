#include "extraction/documents.h"

#include "search/corpus.h"

#include <QDir>
#include <QFile>
#include <QProcess>

namespace {

bool writeFile(const QString &path, const QByteArray &bytes, QString *error)
{
    QFile file(path);
    if (QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) &&
        file.write(bytes) == bytes.size())
        return true;
    *error = path + QLatin1String(": ") + file.errorString();
    return false;
}

/// One page of Helvetica lines.
QByteArray pdfBytes(const QStringList &lines)
{
    QByteArray page = "BT /F1 9 Tf 12 TL 40 800 Td\n";
    for (const QString &line : lines)
        page += '(' + line.toLatin1() + ") Tj T*\n";
    page += "ET\n";
    const QByteArray objects[] = {
        "<< /Type /Catalog /Pages 2 0 R >>", "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] /Contents 4 0 R"
        " /Resources << /Font << /F1 5 0 R >> >> >>",
        "<< /Length " + QByteArray::number(page.size()) + " >>\nstream\n" + page + "endstream",
        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"};
    QByteArray pdf = "%PDF-1.4\n";
    QByteArray table = "xref\n0 6\n0000000000 65535 f \n";
    int number = 0;
    for (const QByteArray &object : objects) {
        table += QByteArray::number(pdf.size()).rightJustified(10, '0') + " 00000 n \n";
        pdf += QByteArray::number(++number) + " 0 obj\n" + object + "\nendobj\n";
    }
    const QByteArray start = QByteArray::number(pdf.size());
    return pdf + table + "trailer\n<< /Size 6 /Root 1 0 R >>\nstartxref\n" + start + "\n%%EOF\n";
}

/// As long as it holds its document part a docx is no more than a zip file.
bool writeDocx(const QString &dir, const QString &name, const QStringList &lines, QString *error)
{
    const QString part = dir + QLatin1String("/parts/word/document.xml");
    const QByteArray xml = "<?xml version=\"1.0\"?><w:document xmlns:w=\"w\"><w:body><w:p><w:t>" +
                           lines.join(QStringLiteral("</w:t></w:p><w:p><w:t>")).toUtf8() +
                           "</w:t></w:p></w:body></w:document>";
    if (!writeFile(part, xml, error))
        return false;
    QProcess zip;
    zip.setWorkingDirectory(dir + QLatin1String("/parts"));
    zip.start(QStringLiteral("zip"), {QStringLiteral("-q"), dir + QLatin1Char('/') + name,
                                      QStringLiteral("word/document.xml")});
    if (zip.waitForFinished() && zip.exitCode() == 0)
        return true;
    *error = QLatin1String("zip: ") + zip.errorString();
    return false;
}

} // namespace

bool writeDocuments(const QString &dir, int count, int words, QString *error)
{
    Corpus corpus;
    const QStringList vocabulary = corpus.textWords(WordKind::Frequent);
    for (int i = 0; i < count; ++i) {
        QStringList lines;
        for (int k = 0; k < words; k += 10) {
            QStringList line;
            for (int n = 0; n < 10; ++n)
                line.append(vocabulary.at((i + (k + n) * 7) % vocabulary.size()));
            lines.append(line.join(QLatin1Char(' ')));
        }
        const QString base = QStringLiteral("%1/d%2").arg(dir).arg(i);
        const QString text = lines.join(QLatin1Char('\n'));
        bool ok = false;
        switch (i % 4) {
        case 0:
            ok = writeFile(base + QLatin1String(".pdf"), pdfBytes(lines), error);
            break;
        case 1:
            ok =
                writeFile(base + QLatin1String(".rtf"),
                          "{\\rtf1\\ansi " + text.toLatin1().replace('\n', "\\par\n") + "}", error);
            break;
        case 2:
            ok = writeDocx(dir, QStringLiteral("d%1.docx").arg(i), lines, error);
            break;
        default:
            ok = writeFile(base + QLatin1String(".txt"), text.toUtf8(), error);
        }
        if (!ok)
            return false;
    }
    return QDir(dir + QLatin1String("/parts")).removeRecursively();
}
