#include "search/text/xmltext.h"

namespace search::text {

const XmlRules &wordRules()
{
    // Deleted text stands apart, so that it does not part what is left.
    static const XmlRules rules{nameSet("t delText"),
                                nameSet("p"),
                                nameSet("tc"),
                                nameSet("br cr"),
                                nameSet("tab ptab"),
                                nameSet("Fallback instrText"),
                                nameSet("txbxContent rt del")};
    return rules;
}

const XmlRules &drawingRules()
{
    static const XmlRules rules{nameSet("t v text"),
                                nameSet("p pt cm comment text si"),
                                nameSet("tc"),
                                nameSet("br"),
                                nameSet("tab"),
                                nameSet("Fallback f"),
                                {}};
    return rules;
}

const XmlRules &openDocumentRules()
{
    static const XmlRules rules{nameSet("p h header-decl footer-decl date-time-decl"),
                                nameSet("p h header-decl footer-decl date-time-decl"),
                                nameSet("table-cell covered-table-cell"),
                                nameSet("line-break"),
                                nameSet("s tab"),
                                nameSet("note-citation script"),
                                nameSet("annotation note-body text-box ruby-text tracked-changes")};
    return rules;
}

const XmlRules &pageRules()
{
    static const XmlRules rules{
        nameSet("TextCode"), nameSet("Page"), {}, nameSet("TextObject"), {}, {}, {}};
    return rules;
}

void readOfficeXml(const QByteArray &xml, TextSink *sink)
{
    static const XmlRules sheetRules{
        nameSet("Data"),   nameSet("Row Comment"), nameSet("Cell"), {}, {},
        nameSet("Styles"), nameSet("Comment")};
    const QByteArray head = xml.left(4096);
    if (head.contains("office:document"))
        readXml(xml, openDocumentRules(), sink);
    else if (head.contains("office:spreadsheet"))
        readXml(xml, sheetRules, sink);
    else if (head.contains("w:wordDocument") || head.contains("<pkg:package"))
        readXml(xml, wordRules(), sink);
    else
        readXml(xml, XmlRules(), sink);
}

} // namespace search::text
