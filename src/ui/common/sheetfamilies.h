#pragma once

#include <QString>

namespace ui {
namespace common {

// Template texts of the application style sheet, one a family of widgets, with the markers of
// fillStyleTemplate(). Only buildAppStyleSheet() puts them together.

QString baseSheet();
QString labelSheet();
QString surfaceSheet();
QString sharedWidgetSheet();
QString buttonSheet();
QString inputSheet();
QString choiceSheet();
QString viewSheet();
QString scrollBarSheet();
QString progressSheet();
QString popupSheet();
QString containerSheet();

} // namespace common
} // namespace ui
