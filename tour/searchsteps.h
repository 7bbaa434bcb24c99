#pragma once

#include "tour.h"

/// What the steps of both modes do on the file search page.
namespace searchsteps {

/// Writes documents of every format into `dir`, those that need LibreOffice only where it is
/// installed, and notes what each of them says.
bool makeDocuments(Tour &tour, const QString &dir, QString *found, QString *error);

/// Waits for the build under way to end well.
bool waitForBuild(Tour &tour, QString *found, QString *error);

/// Types into a line edit as a person would, in place of what stands there.
bool type(Tour &tour, const char *editName, const QString &text, QString *error);

/// Paths in a result view ("NameResultTable" or "ContentResultList"), in its order.
QStringList resultPaths(const Tour &tour, const char *viewName);

/// Searches for `text` and waits until `fileName` is among the results.
bool findFile(Tour &tour, const char *editName, const char *viewName, const QString &text,
              const QString &fileName, QString *error);

/// Searches for what each document says and expects its name.
bool findEveryText(Tour &tour, QString *found, QString *error);

/// Commits a refine keyword in a view ("NameSearchView" or "ContentSearchView"), or drops them all.
bool addRefineKeyword(Tour &tour, const char *viewName, const QString &keyword, QString *error);
bool clearRefine(Tour &tour, const char *viewName, QString *error);

bool showNameView(Tour &tour, QString *error);
bool showContentView(Tour &tour, QString *error);

} // namespace searchsteps
