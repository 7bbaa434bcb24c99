#include "share/pagetemplates.h"

#include "core/deployment.h"
#include "share/escaping.h"

#include <QFile>
#include <QHash>

#include <cstring>

// Q_INIT_RESOURCE declares its function in the enclosing scope, so it has to stand in the global
// one. Without it a static library's resources are left out.
static void loadShareResources()
{
    Q_INIT_RESOURCE(share);
}

namespace share {

namespace {

const char kProductWord[] = "Morvane";
/// A line that begins a block and names it.
const char kBlockMark[] = "@@ ";
constexpr int kBlockMarkSize = 3;

using Blocks = QHash<QByteArray, PageTemplate>;

QByteArray resource(const char *name)
{
    QFile file(QLatin1String(":/share/") + QLatin1String(name));
    if (!file.open(QIODevice::ReadOnly))
        qCritical().noquote() << "[FileShareServer] page template missing:" << file.fileName();
    return file.readAll();
}

QByteArray makerLink()
{
    return "<a href='" + htmlEscaped(core::deployment::makerSiteUrl().toString()) +
           "' target='_blank' rel='noopener noreferrer'>" + kProductWord + "</a>";
}

/// Files of other languages are one block, named after the file.
void addWhole(const char *fileName, Blocks *blocks)
{
    blocks->insert(fileName, PageTemplate(resource(fileName).trimmed()));
}

void addBlocks(const char *fileName, Blocks *blocks)
{
    const QByteArray link = makerLink();
    QByteArray name;
    QByteArray text;
    const auto flush = [&] {
        while (text.endsWith('\n'))
            text.chop(1);
        if (!name.isEmpty())
            blocks->insert(name, PageTemplate(text.replace(kProductWord, link)));
        text.clear();
    };
    const QList<QByteArray> lines = resource(fileName).split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith(kBlockMark)) {
            flush();
            name = line.mid(kBlockMarkSize).trimmed();
        } else {
            text += line + '\n';
        }
    }
    flush();
}

Blocks loadBlocks()
{
    loadShareResources();
    Blocks blocks;
    for (const char *fileName :
         {"page.html", "auth.html", "error.html", "list.html", "upload.html"})
        addBlocks(fileName, &blocks);
    addWhole("style.css", &blocks);
    addWhole("upload.js", &blocks);
    return blocks;
}

} // namespace

PageTemplate::Value::Value(const char *valueKey, const QString &text)
    : key(valueKey)
    , escaped(htmlEscaped(text))
{}

PageTemplate::Value::Value(const char *valueKey, const QByteArray &ownHtml)
    : key(valueKey)
    , html(ownHtml)
{}

PageTemplate::PageTemplate(const QByteArray &text)
{
    int from = 0;
    for (;;) {
        Part part;
        const int open = text.indexOf("{{", from);
        const int close = open < 0 ? -1 : text.indexOf("}}", open);
        if (close < 0) {
            part.literal = text.mid(from);
            m_parts.append(part);
            return;
        }
        part.literal = text.mid(from, open - from);
        part.key = text.mid(open + 2, close - open - 2);
        part.isHtml = part.key.startsWith('&');
        if (part.isHtml)
            part.key.remove(0, 1);
        m_parts.append(part);
        from = close + 2;
    }
}

void PageTemplate::appendTo(QByteArray *out, std::initializer_list<Value> values) const
{
    for (const Part &part : m_parts) {
        out->append(part.literal);
        if (part.key.isEmpty())
            continue;
        for (const Value &value : values) {
            if (part.key == value.key)
                out->append(part.isHtml ? value.html : value.escaped);
        }
    }
}

QByteArray PageTemplate::filled(std::initializer_list<Value> values) const
{
    QByteArray out;
    appendTo(&out, values);
    return out;
}

const PageTemplate &pageTemplate(const char *name)
{
    static const Blocks blocks = loadBlocks();
    static const PageTemplate none;
    const auto found = blocks.constFind(QByteArray::fromRawData(name, int(std::strlen(name))));
    return found == blocks.constEnd() ? none : *found;
}

QByteArray page(const QString &title, const QByteArray &body, const QByteArray &head)
{
    return pageTemplate("page").filled({{"title", title},
                                        {"head", head},
                                        {"style", pageTemplate("style.css").filled({})},
                                        {"body", body}});
}

} // namespace share
