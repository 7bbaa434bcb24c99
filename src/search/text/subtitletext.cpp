#include "search/text/subtitletext.h"

#include "search/text/encoding.h"
#include "search/text/textsink.h"

#include <QRegularExpression>
#include <QStringList>

namespace search::text {

void readSubtitles(const QByteArray &bytes, TextSink *sink)
{
    static const QRegularExpression marks(QStringLiteral("</?[a-zA-Z][^<>]*>|\\{\\\\[^{}]*\\}"));
    const QStringList lines = decodeText(bytes).split(QLatin1Char('\n'));
    bool ended = true;
    for (const QString &raw : lines) {
        QString line = raw.trimmed();
        bool isNumber = false;
        line.toInt(&isNumber);
        if (line.isEmpty() || line.contains(QLatin1String("-->"))) {
            sink->endParagraph();
            ended = line.isEmpty();
        } else if (!(ended && isNumber)) {
            sink->append(line.remove(marks));
            sink->softBreak();
        }
        if (sink->isFull())
            return;
    }
}

} // namespace search::text
