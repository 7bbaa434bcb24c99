// The readers of binary office documents. The first byte of the input chooses between a stream by
// itself, which mutation reaches more easily, and a whole file.

#include "memoryfile.h"
#include "search/text/documenttext.h"
#include "search/text/numberformat.h"
#include "search/text/ppttext.h"
#include "search/text/textsink.h"
#include "search/text/xlstext.h"

#include <cstdlib>
#include <cstring>

using namespace search::text;

namespace {

constexpr int maxChars = 16384;
constexpr int userBytes = 20;

void showNumber(const QByteArray &bytes)
{
    double value = 0;
    std::memcpy(&value, bytes.leftJustified(sizeof(value), '\0').constData(), sizeof(value));
    shownNumber(value, QString::fromUtf8(bytes.mid(sizeof(value))));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const QByteArray bytes(reinterpret_cast<const char *>(data) + 1, int(size) - 1);
    TextSink sink(maxChars);
    switch (data[0] % 4) {
    case 0:
        readXls(bytes, &sink);
        break;
    case 1:
        readPpt(bytes, bytes.right(userBytes), &sink);
        break;
    case 2:
        showNumber(bytes);
        break;
    default:
        if (readDocument(MemoryFile(bytes).path(), maxChars, maxChars).text.size() > maxChars)
            std::abort();
        break;
    }
    if (sink.text().size() > maxChars)
        std::abort();
    return 0;
}
