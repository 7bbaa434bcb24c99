#include "ui/pages/helpguidepage/guidetext.h"

#include <QStringList>

namespace helpguide {

namespace {

const QString &documentStart()
{
    static const QString kStart = QStringLiteral("<html><head><meta charset='utf-8'></head><body>");
    return kStart;
}

const QString &documentEnd()
{
    static const QString kEnd = QStringLiteral("</body></html>");
    return kEnd;
}

/// Writes the document line by line.
class Writer
{
public:
    Writer(const GuideColors &colors, QVector<GuideSection> *sections)
        : m_colors(colors)
        , m_sections(sections)
        , m_html(documentStart())
    {}

    void addLine(const QString &line)
    {
        if (line.startsWith(QLatin1String("```")))
            toggleCode();
        else if (m_inCode)
            m_html += escaped(line) + QLatin1Char('\n');
        else if (!addHeading(line) && !addItem(line))
            addParagraph(line);
    }

    QString finished()
    {
        closeList();
        if (m_inCode)
            toggleCode();
        return m_html + documentEnd();
    }

private:
    void toggleCode()
    {
        closeList();
        m_inCode = !m_inCode;
        m_html += m_inCode ? QStringLiteral("<pre style='background:%1;border:1px solid "
                                            "%2;border-radius:8px;padding:10px;color:%3;'>")
                                 .arg(m_colors.codeBackground.name(), m_colors.codeBorder.name(),
                                      m_colors.text.name())
                           : QStringLiteral("</pre>");
    }

    bool addHeading(const QString &line)
    {
        for (int level = 3; level >= 1; --level) {
            const QString mark = QString(level, QLatin1Char('#')) + QLatin1Char(' ');
            if (!line.startsWith(mark))
                continue;
            closeList();
            const QString title = line.mid(mark.size()).trimmed();
            const QString anchor = QStringLiteral("section-%1").arg(++m_headings);
            m_html +=
                QStringLiteral("<h%1 id='%2' style='color:%3;'>%4</h%1>")
                    .arg(QString::number(level), anchor, m_colors.text.name(), escaped(title));
            if (m_sections)
                m_sections->append({level, title, anchor});
            return true;
        }
        return false;
    }

    bool addItem(const QString &line)
    {
        if (!line.startsWith(QLatin1String("- ")) && !line.startsWith(QLatin1String("* ")))
            return false;
        if (!m_inList)
            m_html += QStringLiteral("<ul style='color:%1;'>").arg(m_colors.text.name());
        m_inList = true;
        m_html += QLatin1String("<li>") + escaped(line.mid(2)) + QLatin1String("</li>");
        return true;
    }

    void addParagraph(const QString &line)
    {
        closeList();
        if (line.trimmed().isEmpty())
            return;
        m_html += QStringLiteral("<p style='color:%1;line-height:1.6;'>%2</p>")
                      .arg(m_colors.text.name(), escaped(line));
    }

    void closeList()
    {
        if (m_inList)
            m_html += QLatin1String("</ul>");
        m_inList = false;
    }

    const GuideColors &m_colors;
    QVector<GuideSection> *m_sections;
    QString m_html;
    bool m_inCode = false;
    bool m_inList = false;
    int m_headings = 0;
};

} // namespace

QString escaped(const QString &text)
{
    QString safe = text;
    safe.replace(QLatin1Char('&'), QLatin1String("&amp;"));
    safe.replace(QLatin1Char('<'), QLatin1String("&lt;"));
    safe.replace(QLatin1Char('>'), QLatin1String("&gt;"));
    return safe;
}

QString markdownToHtml(const QString &markdown, const GuideColors &colors,
                       QVector<GuideSection> *sections)
{
    Writer writer(colors, sections);
    const QStringList lines = markdown.split(QLatin1Char('\n'));
    for (QString line : lines) {
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);
        writer.addLine(line);
    }
    return writer.finished();
}

QString problemPage(const QString &heading, const QString &text, const QString &path,
                    const GuideColors &colors)
{
    const QString ink = colors.text.name();
    QString html = documentStart();
    html += QStringLiteral("<h2 style='color:%1;'>%2</h2>").arg(ink, escaped(heading));
    if (!text.isEmpty())
        html += QStringLiteral("<p style='color:%1;'>%2</p>").arg(ink, escaped(text));
    if (!path.isEmpty())
        html += QStringLiteral("<p style='color:%1;'>%2</p>").arg(ink, escaped(path));
    return html + documentEnd();
}

} // namespace helpguide
