#pragma once

#include <cstdint>

namespace search::text {

/// What goes over the socket between the program and its reading helper, in the byte order of the
/// machine: a request with the path's bytes behind it, then a reply with the text as UTF-8 behind
/// it. The helper ends when the socket closes, or after `idleSeconds` without a request.
struct ExtractRequest
{
    std::uint32_t pathBytes;
    std::uint32_t maxPlainBytes;
    std::uint32_t maxChars;
};

struct ExtractReply
{
    std::uint32_t textBytes;
    std::uint32_t isCut; ///< 1 if the document goes on behind the text.
};

constexpr std::uint32_t maxPathBytes = 65536;
constexpr int idleSeconds = 10;
/// Of one document; the helper ends itself after it.
constexpr int documentSeconds = 20;

} // namespace search::text
