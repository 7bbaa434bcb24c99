#pragma once

#include <QByteArray>

namespace search::query {

/// A word of two letters a to z or more, which may be typed pinyin.
bool mayBePinyin(const QByteArray &word);

/// True if Han characters that stand side by side in `text` read as `word`: each by one of its
/// readings or by the first letters of it, the last one also by any beginning. "hetong", "ht",
/// "het" and "heton" are all 合同. `text` is UTF-8, `word` in lower case. For any thread.
bool readsAs(const char *text, int size, const QByteArray &word);

} // namespace search::query
