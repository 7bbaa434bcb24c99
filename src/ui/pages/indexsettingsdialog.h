#pragma once

#include "core/appmode.h"
#include "core/controllers/search/searchpathresolver.h"

#include <QDialog>
#include <QStringList>

/// Edits what the file search page keeps under the `search` group of its settings.
class IndexSettingsDialog : public QDialog
{
    Q_OBJECT

public:
    struct Settings
    {
        QStringList roots;
        QStringList excludeDirs;
        QStringList ftsExtensions;
        bool autoRebuild = true;
        int inotifyMaxDepth = 5;
        int incrementalIntervalHours = 24;
    };

    IndexSettingsDialog(core::AppMode mode,
                        const core::controllers::search::SearchRuntimePaths &paths,
                        QWidget *parent = nullptr);

    Settings settings() const;
    void setSettings(const Settings &settings);
};
