#include "search/query/proximity.h"

#include <QVector>

#include <algorithm>
#include <limits>

namespace search::query {
namespace {

constexpr int mostPlaces = 200; // of one word
constexpr int farApart = std::numeric_limits<int>::max();

struct Place
{
    int position;
    int word;
};

} // namespace

int wordSpan(const QString &text, const QStringList &words)
{
    if (words.size() < 2)
        return 0;
    QVector<Place> places;
    for (int w = 0; w < words.size(); ++w) {
        int position = text.indexOf(words.at(w), 0, Qt::CaseInsensitive);
        if (position < 0)
            return farApart;
        for (int n = 0; position >= 0 && n < mostPlaces; ++n) {
            places.append({position, w});
            position = text.indexOf(words.at(w), position + 1, Qt::CaseInsensitive);
        }
    }
    std::sort(places.begin(), places.end(),
              [](const Place &a, const Place &b) { return a.position < b.position; });
    // The latest place of each word so far; the earliest of these begins the part.
    QVector<int> latest(words.size(), -1);
    int shortest = farApart;
    for (const Place &place : qAsConst(places)) {
        latest[place.word] = place.position;
        const int first = *std::min_element(latest.cbegin(), latest.cend());
        if (first >= 0)
            shortest = qMin(shortest, place.position + words.at(place.word).size() - first);
    }
    return shortest;
}

} // namespace search::query
