#include "support/sampledocuments.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QUrl>

namespace samples {

namespace {

constexpr int officeTimeoutMs = 120000;

/// A document that is made here, byte by byte.
struct Handmade
{
    QString fileName;
    QString expectedText;
    QByteArray data;
};

QByteArray xml(const QString &body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + body.toUtf8();
}

QString officeNamespaces()
{
    return QStringLiteral("xmlns:office=\"urn:oasis:names:tc:opendocument:xmlns:office:1.0\" "
                          "xmlns:text=\"urn:oasis:names:tc:opendocument:xmlns:text:1.0\" "
                          "xmlns:table=\"urn:oasis:names:tc:opendocument:xmlns:table:1.0\" "
                          "xmlns:draw=\"urn:oasis:names:tc:opendocument:xmlns:drawing:1.0\" "
                          "xmlns:svg=\"urn:oasis:names:tc:opendocument:xmlns:svg-compatible:1.0\" "
                          "office:version=\"1.2\"");
}

QString textBody(const QString &text)
{
    return QStringLiteral("<office:text><text:p>%1</text:p></office:text>").arg(text);
}

QString sheetBody(const QString &text)
{
    return QStringLiteral(
               "<office:spreadsheet><table:table table:name=\"Sheet1\"><table:table-row>"
               "<table:table-cell office:value-type=\"string\"><text:p>%1</text:p>"
               "</table:table-cell></table:table-row></table:table></office:spreadsheet>")
        .arg(text);
}

QString slideBody(const QString &text)
{
    return QStringLiteral("<office:presentation><draw:page><draw:frame svg:x=\"2cm\" svg:y=\"2cm\" "
                          "svg:width=\"20cm\" svg:height=\"4cm\"><draw:text-box><text:p>%1</text:p>"
                          "</draw:text-box></draw:frame></draw:page></office:presentation>")
        .arg(text);
}

/// One of the office formats in a single file, which LibreOffice converts from.
QByteArray flatOpenDocument(const QString &kind, const QString &body)
{
    return xml(QStringLiteral("<office:document %1 office:mimetype=\""
                              "application/vnd.oasis.opendocument.%2\"><office:body>%3"
                              "</office:body></office:document>")
                   .arg(officeNamespaces(), kind, body));
}

QByteArray openDocument(const QString &kind, const QString &body)
{
    const QString type = QStringLiteral("application/vnd.oasis.opendocument.") + kind;
    return zipArchive(
        {{QStringLiteral("mimetype"), type.toLatin1()},
         {QStringLiteral("META-INF/manifest.xml"),
          xml(QStringLiteral(
                  "<manifest:manifest "
                  "xmlns:manifest=\"urn:oasis:names:tc:opendocument:xmlns:manifest:1.0\" "
                  "manifest:version=\"1.2\"><manifest:file-entry manifest:full-path=\"/\" "
                  "manifest:media-type=\"%1\"/><manifest:file-entry "
                  "manifest:full-path=\"content.xml\" manifest:media-type=\"text/xml\"/>"
                  "</manifest:manifest>")
                  .arg(type))},
         {QStringLiteral("content.xml"),
          xml(QStringLiteral("<office:document-content %1><office:body>%2</office:body>"
                             "</office:document-content>")
                  .arg(officeNamespaces(), body))}});
}

QByteArray wordXml(const QString &text)
{
    return xml(QStringLiteral(
                   "<w:document xmlns:w=\"http://schemas.openxmlformats.org/wordprocessingml/"
                   "2006/main\"><w:body><w:p><w:r><w:t>%1</w:t></w:r></w:p></w:body></w:document>")
                   .arg(text));
}

QByteArray sharedStringsXml(const QString &text)
{
    return xml(
        QStringLiteral("<sst xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\">"
                       "<si><t>%1</t></si></sst>")
            .arg(text));
}

QByteArray slideXml(const QString &text)
{
    return xml(QStringLiteral(
                   "<p:sld xmlns:p=\"http://schemas.openxmlformats.org/presentationml/2006/main\" "
                   "xmlns:a=\"http://schemas.openxmlformats.org/drawingml/2006/main\">"
                   "<p:txBody><a:p><a:r><a:t>%1</a:t></a:r></a:p></p:txBody></p:sld>")
                   .arg(text));
}

/// An Office Open XML package of the one part that carries the text; the whole ones are
/// LibreOffice's.
QByteArray officePackage(const QString &part, const QString &contentType, const QByteArray &body)
{
    return zipArchive(
        {{QStringLiteral("[Content_Types].xml"),
          xml(QStringLiteral(
                  "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
                  "<Default Extension=\"rels\" ContentType=\"application/vnd.openxmlformats-package"
                  ".relationships+xml\"/><Override PartName=\"/%1\" ContentType=\"application/vnd."
                  "openxmlformats-officedocument.%2+xml\"/></Types>")
                  .arg(part, contentType))},
         {QStringLiteral("_rels/.rels"),
          xml(QStringLiteral("<Relationships xmlns=\"http://schemas.openxmlformats.org/package/"
                             "2006/relationships\"><Relationship Id=\"rId1\" "
                             "Type=\"http://schemas.openxmlformats.org/officeDocument/2006/"
                             "relationships/officeDocument\" Target=\"%1\"/></Relationships>")
                  .arg(part))},
         {part, body}},
        ZipMethod::Deflate);
}

QByteArray ofd(const QString &text)
{
    const QString name = QStringLiteral("xmlns:ofd=\"http://www.ofdspec.org/2016\"");
    return zipArchive(
        {{QStringLiteral("OFD.xml"),
          xml(QStringLiteral(
                  "<ofd:OFD %1 DocType=\"OFD\" Version=\"1.0\"><ofd:DocBody><ofd:DocRoot>"
                  "Doc_0/Document.xml</ofd:DocRoot></ofd:DocBody></ofd:OFD>")
                  .arg(name))},
         {QStringLiteral("Doc_0/Document.xml"),
          xml(QStringLiteral("<ofd:Document %1><ofd:Pages><ofd:Page ID=\"1\" "
                             "BaseLoc=\"Pages/Page_0/Content.xml\"/></ofd:Pages></ofd:Document>")
                  .arg(name))},
         {QStringLiteral("Doc_0/Pages/Page_0/Content.xml"),
          xml(QStringLiteral("<ofd:Page %1><ofd:Content><ofd:Layer ID=\"2\"><ofd:TextObject "
                             "ID=\"3\" Boundary=\"10 10 180 10\" Font=\"1\" Size=\"5\">"
                             "<ofd:TextCode X=\"0\" Y=\"5\">%2</ofd:TextCode></ofd:TextObject>"
                             "</ofd:Layer></ofd:Content></ofd:Page>")
                  .arg(name, text))}});
}

QByteArray epub(const QString &text)
{
    return zipArchive(
        {{QStringLiteral("mimetype"), "application/epub+zip"},
         {QStringLiteral("META-INF/container.xml"),
          xml(QStringLiteral(
              "<container version=\"1.0\" "
              "xmlns=\"urn:oasis:names:tc:opendocument:xmlns:container\">"
              "<rootfiles><rootfile full-path=\"OEBPS/content.opf\" "
              "media-type=\"application/oebps-package+xml\"/></rootfiles></container>"))},
         {QStringLiteral("OEBPS/content.opf"),
          xml(QStringLiteral(
              "<package xmlns=\"http://www.idpf.org/2007/opf\" version=\"2.0\"><manifest><item "
              "id=\"c1\" href=\"Text/Section0001.xhtml\" media-type=\"application/xhtml+xml\"/>"
              "</manifest><spine><itemref idref=\"c1\"/></spine></package>"))},
         {QStringLiteral("OEBPS/Text/Section0001.xhtml"),
          xml(QStringLiteral("<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><title/></head>"
                             "<body><p>%1</p></body></html>")
                  .arg(text))}});
}

Handmade office(const QString &suffix, const QString &text, const QByteArray &data)
{
    return {QStringLiteral("样例-%1.%1").arg(suffix), text, data};
}

QList<Handmade> textualDocuments()
{
    const QString note = QStringLiteral("会议纪要 meeting minutes of monday");
    const QString letter = QStringLiteral("rich letter to a customer");
    const QString manual = QStringLiteral("安装手册 installation manual");
    return {{QStringLiteral("会议纪要.txt"), note, note.toUtf8() + '\n'},
            {QStringLiteral("readme.md"), manual, "# " + manual.toUtf8() + '\n'},
            // The RTF tool writes characters beyond Latin-1 as question marks.
            {QStringLiteral("客户信.rtf"), letter, richText(QStringLiteral("客户 ") + letter)},
            {QStringLiteral("安装手册.pdf"), manual, pdfDocument(manual)},
            {QStringLiteral("产品发布.ppt"), QStringLiteral("产品发布 launch of the product"),
             olePresentation(QStringLiteral("产品发布 launch of the product"))}};
}

QList<Handmade> zippedDocuments()
{
    const QString letter = QStringLiteral("合同草案 draft of the contract");
    const QString sheet = QStringLiteral("价格表 price list for spring");
    const QString slide = QStringLiteral("年度总结 summary of the year");
    const QByteArray word =
        officePackage(QStringLiteral("word/document.xml"),
                      QStringLiteral("wordprocessingml.document.main"), wordXml(letter));
    const QByteArray strings =
        officePackage(QStringLiteral("xl/sharedStrings.xml"),
                      QStringLiteral("spreadsheetml.sharedStrings"), sharedStringsXml(sheet));
    const QByteArray slides =
        officePackage(QStringLiteral("ppt/slides/slide1.xml"),
                      QStringLiteral("presentationml.slide"), slideXml(slide));
    return {office(QStringLiteral("docx"), letter, word),
            office(QStringLiteral("xlsx"), sheet, strings),
            office(QStringLiteral("pptx"), slide, slides),
            office(QStringLiteral("odt"), letter,
                   openDocument(QStringLiteral("text"), textBody(letter))),
            office(QStringLiteral("ods"), sheet,
                   openDocument(QStringLiteral("spreadsheet"), sheetBody(sheet))),
            office(QStringLiteral("odp"), slide,
                   openDocument(QStringLiteral("presentation"), slideBody(slide))),
            office(QStringLiteral("odg"), slide,
                   openDocument(QStringLiteral("graphics"), slideBody(slide))),
            office(QStringLiteral("ofd"), QStringLiteral("电子发票 electronic invoice"),
                   ofd(QStringLiteral("电子发票 electronic invoice"))),
            office(QStringLiteral("epub"), QStringLiteral("第一章 the first chapter"),
                   epub(QStringLiteral("第一章 the first chapter"))),
            office(QStringLiteral("wps"), letter, word),
            office(QStringLiteral("et"), sheet, strings),
            office(QStringLiteral("dps"), slide, slides)};
}

QList<Handmade> oleDocuments()
{
    const QString letter = QStringLiteral("旧版公文 letter in the old format");
    const QString sheet = QStringLiteral("旧版表格 sheet in the old format");
    const QString slide = QStringLiteral("旧版演示 slides in the old format");
    return {{QStringLiteral("旧版公文.wps"), letter, oleDocument(letter)},
            {QStringLiteral("旧版表格.et"), sheet, oleDocument(sheet)},
            {QStringLiteral("旧版演示.dps"), slide, oleDocument(slide)}};
}

/// Conversions of one flat document.
struct Conversion
{
    QString source;
    QByteArray data;
    QString expectedText;
    QStringList formats;
};

QList<Conversion> conversions()
{
    const QString report = QStringLiteral("季度预算报告 quarterly budget report");
    const QString stock = QStringLiteral("库存清单 list of the stock");
    const QString plan = QStringLiteral("项目计划 plan of the project");
    return {{QStringLiteral("季度报告.fodt"),
             flatOpenDocument(QStringLiteral("text"), textBody(report)),
             report,
             {QStringLiteral("doc"), QStringLiteral("docx"), QStringLiteral("odt"),
              QStringLiteral("pdf")}},
            {QStringLiteral("库存清单.fods"),
             flatOpenDocument(QStringLiteral("spreadsheet"), sheetBody(stock)),
             stock,
             {QStringLiteral("xls"), QStringLiteral("xlsx"), QStringLiteral("ods")}},
            {QStringLiteral("项目计划.fodp"),
             flatOpenDocument(QStringLiteral("presentation"), slideBody(plan)),
             plan,
             {QStringLiteral("pptx"), QStringLiteral("odp"), QStringLiteral("pdf")}}};
}

QString officeProgram()
{
    return QStandardPaths::findExecutable(QStringLiteral("soffice"));
}

/// Runs LibreOffice once for all sources of one format. Its profile lives beside the sources, so
/// that neither a running LibreOffice nor the user's settings play a part.
bool convert(const QString &workDir, const QStringList &sources, const QString &format,
             const QString &outDir, QString *error)
{
    QProcess soffice;
    soffice.setWorkingDirectory(workDir);
    soffice.setStandardInputFile(QProcess::nullDevice());
    soffice.setProcessChannelMode(QProcess::MergedChannels);
    const QUrl profile = QUrl::fromLocalFile(workDir + QStringLiteral("/profile"));
    soffice.start(officeProgram(),
                  QStringList{QStringLiteral("-env:UserInstallation=") + profile.toString(),
                              QStringLiteral("--headless"), QStringLiteral("--norestore"),
                              QStringLiteral("--convert-to"), format, QStringLiteral("--outdir"),
                              outDir} +
                      sources);
    if (soffice.waitForFinished(officeTimeoutMs) && soffice.exitStatus() == QProcess::NormalExit &&
        soffice.exitCode() == 0)
        return true;
    *error = QStringLiteral("LibreOffice did not write %1: %2")
                 .arg(format, QString::fromLocal8Bit(soffice.readAll()));
    soffice.kill();
    soffice.waitForFinished();
    return false;
}

bool writeOfficeDocuments(const QString &dir, QList<Document> *made, QString *error)
{
    const QTemporaryDir work;
    if (!work.isValid() || !officeAvailable()) {
        *error = work.isValid() ? QStringLiteral("LibreOffice is missing") : work.errorString();
        return false;
    }
    QMap<QString, QStringList> sourcesByFormat;
    for (const Conversion &conversion : conversions()) {
        if (!writeFile(work.filePath(conversion.source), conversion.data, error))
            return false;
        for (const QString &format : conversion.formats)
            sourcesByFormat[format].append(conversion.source);
    }
    for (auto it = sourcesByFormat.constBegin(); it != sourcesByFormat.constEnd(); ++it) {
        if (!convert(work.path(), it.value(), it.key(), dir, error))
            return false;
    }
    for (const Conversion &conversion : conversions()) {
        for (const QString &format : conversion.formats) {
            const QString name =
                QFileInfo(conversion.source).baseName() + QLatin1Char('.') + format;
            if (!QFileInfo::exists(QDir(dir).filePath(name))) {
                *error = QStringLiteral("LibreOffice left out %1").arg(name);
                return false;
            }
            made->append({name, conversion.expectedText});
        }
    }
    return true;
}

} // namespace

bool officeAvailable()
{
    return !officeProgram().isEmpty();
}

bool writeFile(const QString &path, const QByteArray &data, QString *error)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(data) == data.size() && file.flush())
        return true;
    *error = QStringLiteral("%1: %2").arg(path, file.errorString());
    return false;
}

bool writeDocuments(const QString &dir, bool withOffice, QList<Document> *made, QString *error)
{
    for (const Handmade &document : textualDocuments() + zippedDocuments() + oleDocuments()) {
        if (!writeFile(QDir(dir).filePath(document.fileName), document.data, error))
            return false;
        made->append({document.fileName, document.expectedText});
    }
    return !withOffice || writeOfficeDocuments(dir, made, error);
}

} // namespace samples
