#include "ui/common/layoutmetrics.h"

#include "ui/common/textfont.h"

#include <QFontMetrics>

namespace ui {
namespace common {
namespace metrics {

namespace {

constexpr int kBodyPx = 13;
constexpr int kCaptionPx = 12;

} // namespace

int lineHeight(int basePx)
{
    return QFontMetrics(textFont(basePx)).height();
}

int controlHeight()
{
    return qMax(36, lineHeight(kBodyPx) + 12);
}

int rowControlHeight()
{
    return qMax(32, lineHeight(kBodyPx) + 8);
}

int headerHeight()
{
    return qMax(36, lineHeight(kCaptionPx) + 12);
}

int rowHeight()
{
    return qMax(40, lineHeight(kBodyPx) + 16);
}

} // namespace metrics
} // namespace common
} // namespace ui
