#include "ui/common/textfont.h"

#include "ui/common/theme.h"

namespace ui {
namespace common {

QFont textFont(int basePx, QFont::Weight weight)
{
    QFont font = applicationFont();
    font.setPixelSize(ThemeColors::current().fontPx(basePx));
    font.setWeight(weight);
    return font;
}

} // namespace common
} // namespace ui
