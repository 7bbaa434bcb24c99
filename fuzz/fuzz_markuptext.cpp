// The readers of documents that are text themselves. The first byte of the input chooses one.

#include "search/text/encoding.h"
#include "search/text/htmltext.h"
#include "search/text/mailtext.h"
#include "search/text/pagetext.h"
#include "search/text/rtftext.h"
#include "search/text/subtitletext.h"
#include "search/text/textsink.h"
#include "search/text/xmltext.h"

#include <cstdlib>

using namespace search::text;

namespace {

constexpr int maxChars = 16384;

void read(int reader, const QByteArray &bytes, TextSink *sink)
{
    switch (reader) {
    case 0:
        readRtf(bytes, sink);
        break;
    case 1:
        readHtml(bytes, QByteArray(), sink);
        break;
    case 2:
        readMail(bytes, sink);
        break;
    case 3:
        readMailbox(bytes, sink);
        break;
    case 4:
        readSubtitles(bytes, sink);
        break;
    case 5:
        readOfficeXml(bytes, sink);
        break;
    default:
        sink->appendParagraphs(headerFooterText(decodeText(bytes, true)));
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    TextSink sink(maxChars);
    read(data[0] % 7, QByteArray(reinterpret_cast<const char *>(data) + 1, int(size) - 1), &sink);
    if (sink.text().size() > maxChars)
        std::abort();
    return 0;
}
