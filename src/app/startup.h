#pragma once

#include "core/appmode.h"

#include <QString>

namespace ui {
namespace common {
enum class ThemeType;
}
} // namespace ui

/// Font scale from the settings file; 1.15 where the key is missing or holds no number.
double loadFontScale(const QString &settingsPath);

/// Whether all buttons of pages take the focus by Tab, from the settings file; no by default.
bool loadKeyboardNavigation(const QString &settingsPath);

/// The theme for the setting "light", "dark" or "desktop"; for any other word, "mode" among them,
/// the one of the run mode: light in the installed system, dark in the recovery environment.
ui::common::ThemeType themeFor(const QString &setting, core::AppMode mode, bool isDesktopDark);

/// The whole run of the program: log, run mode, single instance, theme, main window, event loop.
/// Returns the exit status; a second instance hands over to the first and returns 0 at once.
int runApplication(int &argc, char **argv);
