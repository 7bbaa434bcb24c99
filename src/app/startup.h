#pragma once

#include <QString>

/// Font scale from the settings file; 1.15 where the key is missing or holds no number.
double loadFontScale(const QString &settingsPath);

/// The whole run of the program: log, run mode, single instance, theme, main window, event loop.
/// Returns the exit status; a second instance hands over to the first and returns 0 at once.
int runApplication(int &argc, char **argv);
