#pragma once

namespace search::query {

/// A Han character and the one that stands for it when texts are compared: the simplified form of a
/// traditional one, the common form of a rare one.
struct HanVariant
{
    char16_t from;
    char16_t to;
};

// Made at build time from Unihan (maketables.cpp); empty, with counts of 0, where it was missing.
extern const int hanVariantCount;
extern const HanVariant hanVariants[]; ///< Ascending by `from`.

constexpr char16_t firstHan = 0x3400;
constexpr char16_t lastHan = 0x9FFF;

/// Readings of the character c are hanReadings[i], numbers in pinyinSyllables, for i from
/// hanReadingStarts[c - firstHan] up to the next start.
extern const int hanReadingCount;
extern const unsigned hanReadingStarts[];
extern const unsigned short hanReadings[];
extern const char *const pinyinSyllables[];

} // namespace search::query
