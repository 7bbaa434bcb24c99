#pragma once

#include <QVector>

#include <functional>

namespace search::names {

class NameMatcher;

/// Rows of an arena by how they match, each list in the arena's order.
struct NameHits
{
    QVector<int> direct;
    QVector<int> unsure;
    QVector<int> pinyin;
    /// False if there are more unsure rows than are worth a look; nothing behind them is known.
    bool isComplete = true;
};

/// Asked now and then, from several threads; true ends the scan.
using Cancelled = std::function<bool()>;

/// Looks through an arena on up to two threads until `limit` direct hits are found; pinyin is tried
/// only if the words alone give fewer rows. What a cancelled scan returns means nothing.
NameHits scanNames(const NameMatcher &matcher, int limit, const Cancelled &cancelled);

} // namespace search::names
