#include "search/text/xmltext.h"

#include "search/text/textsink.h"

#include <QVector>
#include <QXmlStreamReader>

namespace search::text {

namespace {

constexpr int maxDepth = 500;
/// Before 5.15 the XML reader expands entities without a limit. No office program declares any.
constexpr bool entitiesSwell = QT_VERSION < QT_VERSION_CHECK(5, 15, 0);

class XmlTextReader
{
public:
    XmlTextReader(const QByteArray &xml, const XmlRules &rules, TextSink *sink)
        : m_xml(xml)
        , m_rules(rules)
        , m_sink(*sink)
        , m_asides(sink->room())
    {}

    void read()
    {
        while (!m_xml.atEnd() && !m_sink.isFull() && m_depth <= maxDepth) {
            m_xml.readNext();
            if (entitiesSwell && m_xml.isDTD() && m_xml.text().contains(QLatin1String("<!ENTITY")))
                break;
            if (m_xml.isStartElement())
                enter(m_xml.name().toString());
            else if (m_xml.isEndElement())
                leave(m_xml.name().toString());
            else if (m_xml.isCharacters() && (m_inText > 0 || m_rules.textElements.isEmpty()))
                target().append(m_xml.text().toString());
        }
        m_sink.endParagraph();
        m_sink.appendParagraphs(m_asides.text());
    }

private:
    TextSink &target() { return m_inAside > 0 ? m_asides : m_sink; }

    void enter(const QString &name)
    {
        if (m_rules.skipped.contains(name)) {
            m_xml.skipCurrentElement();
            return;
        }
        ++m_depth;
        m_inText += m_rules.textElements.contains(name) ? 1 : 0;
        m_inAside += m_rules.asides.contains(name) ? 1 : 0;
        if (m_rules.softBreaks.contains(name))
            target().softBreak();
        else if (m_rules.blanks.contains(name))
            target().append(QLatin1Char(' '));
    }

    void leave(const QString &name)
    {
        --m_depth;
        m_inText -= m_rules.textElements.contains(name) ? 1 : 0;
        if (m_rules.paragraphs.contains(name) || m_rules.asides.contains(name))
            target().endParagraph();
        else if (m_rules.cells.contains(name))
            target().endCell();
        m_inAside -= m_rules.asides.contains(name) ? 1 : 0;
    }

    QXmlStreamReader m_xml;
    const XmlRules &m_rules;
    TextSink &m_sink;
    TextSink m_asides;
    int m_depth = 0;
    int m_inText = 0;
    int m_inAside = 0;
};

} // namespace

QSet<QString> nameSet(const char *names)
{
    QSet<QString> set;
    const QStringList list = QString::fromLatin1(names).split(QLatin1Char(' '));
    for (const QString &name : list)
        set.insert(name);
    return set;
}

void readXml(const QByteArray &xml, const XmlRules &rules, TextSink *sink)
{
    XmlTextReader(xml, rules, sink).read();
}

} // namespace search::text
