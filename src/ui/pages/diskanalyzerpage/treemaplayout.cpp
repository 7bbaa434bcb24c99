#include "ui/pages/diskanalyzerpage/treemaplayout.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace diskanalyzer {

namespace {

/// The worst ratio of sides among areas laid in a row along `side`.
double worstRatio(double smallest, double largest, double sum, double side)
{
    const double square = side * side;
    return std::max(square * largest / (sum * sum), sum * sum / (square * smallest));
}

/// Lays areas[first, last) along the shorter side of `left` and returns what is left.
QRectF layRow(const QVector<double> &areas, const QVector<int> &order, int first, int last,
              double sum, const QRectF &left, QVector<QRectF> *rects)
{
    const bool upright = left.width() >= left.height();
    const double side = upright ? left.height() : left.width();
    const double depth = std::min(sum / side, upright ? left.width() : left.height());
    double at = upright ? left.top() : left.left();
    for (int i = first; i < last; ++i) {
        const double length = areas.at(i) / sum * side;
        (*rects)[order.at(i)] = upright ? QRectF(left.left(), at, depth, length)
                                        : QRectF(at, left.top(), length, depth);
        at += length;
    }
    return upright ? left.adjusted(depth, 0, 0, 0) : left.adjusted(0, depth, 0, 0);
}

} // namespace

QVector<QRectF> squarify(const QVector<double> &sizes, const QRectF &area)
{
    QVector<QRectF> rects(sizes.size());
    QVector<int> order;
    double total = 0;
    for (int i = 0; i < sizes.size(); ++i) {
        if (sizes.at(i) > 0) {
            order.append(i);
            total += sizes.at(i);
        }
    }
    if (total <= 0 || area.width() <= 0 || area.height() <= 0)
        return rects;
    QVector<double> areas;
    areas.reserve(order.size());
    for (int index : order)
        areas.append(sizes.at(index) / total * area.width() * area.height());

    QRectF left = area;
    int first = 0;
    while (first < areas.size()) {
        const double side = std::min(left.width(), left.height());
        if (side <= 0)
            break; // Used up by rounding; the rest is too small to be seen.
        double sum = areas.at(first);
        double smallest = sum;
        double largest = sum;
        double worst = worstRatio(smallest, largest, sum, side);
        int last = first + 1;
        for (; last < areas.size(); ++last) {
            const double next = areas.at(last);
            const double ratio =
                worstRatio(std::min(smallest, next), std::max(largest, next), sum + next, side);
            if (ratio > worst)
                break;
            worst = ratio;
            sum += next;
            smallest = std::min(smallest, next);
            largest = std::max(largest, next);
        }
        left = layRow(areas, order, first, last, sum, left, &rects);
        first = last;
    }
    return rects;
}

int neighbour(const QVector<QRectF> &rects, int from, Direction direction)
{
    if (from < 0 || from >= rects.size())
        return rects.isEmpty() ? -1 : 0;
    const QPointF here = rects.at(from).center();
    int best = from;
    double bestDistance = std::numeric_limits<double>::max();
    for (int i = 0; i < rects.size(); ++i) {
        if (i == from || rects.at(i).isEmpty())
            continue;
        const QPointF step = rects.at(i).center() - here;
        double along = 0;
        double across = 0;
        switch (direction) {
        case Direction::Left:
        case Direction::Right:
            along = direction == Direction::Left ? -step.x() : step.x();
            across = std::abs(step.y());
            break;
        case Direction::Up:
        case Direction::Down:
            along = direction == Direction::Up ? -step.y() : step.y();
            across = std::abs(step.x());
            break;
        }
        // What lies straight ahead comes before what is near but off to the side.
        const double distance = along + 2 * across;
        if (along > 0.5 && distance < bestDistance) {
            bestDistance = distance;
            best = i;
        }
    }
    return best;
}

} // namespace diskanalyzer
