// The readers of zip-based documents, from the directory of the archive to the XML in it.

#include "memoryfile.h"
#include "search/text/documenttext.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr int maxChars = 16384;
    const MemoryFile file("PK\x03\x04" +
                          QByteArray(reinterpret_cast<const char *>(data), int(size)).mid(4));
    if (search::text::readDocument(file.path(), maxChars, maxChars).text.size() > maxChars)
        std::abort();
    return 0;
}
