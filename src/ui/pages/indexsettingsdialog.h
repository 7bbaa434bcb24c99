#pragma once

#include "core/appmode.h"
#include "core/controllers/search/searchpathresolver.h"
#include "ui/common/framelessdialog.h"

#include <QList>
#include <QStringList>

class QCheckBox;
class QComboBox;
class QListWidget;
class QVBoxLayout;

/// Edits what the file search page keeps under the `search` group of its settings. Directories are
/// runtime paths here.
class IndexSettingsDialog : public ui::common::FramelessDialog
{
    Q_OBJECT

public:
    struct Settings
    {
        QStringList roots;
        QStringList excludeDirs;
        QStringList ftsExtensions;
        bool moreTextTypes = true;
        int indexedTextBytes = 16384;
        bool autoRebuild = true;
        int inotifyMaxDepth = 5;
        int incrementalIntervalHours = 24;
    };

    IndexSettingsDialog(core::AppMode mode,
                        const core::controllers::search::SearchRuntimePaths &paths,
                        QWidget *parent = nullptr);

    Settings settings() const;
    void setSettings(const Settings &settings);

private:
    QListWidget *addDirectoryCard(QVBoxLayout *column, const QString &name, const QString &title,
                                  const QString &hint, const QString &dialogTitle);
    void buildTypesCard(QVBoxLayout *column);
    void buildAdvancedCard(QVBoxLayout *column);

    void chooseDirectory(QListWidget *list, const QString &dialogTitle);
    /// Ignores an empty path and one that is listed; refuses one outside the target system.
    void addPathToList(QListWidget *list, const QString &path);
    static QStringList listToStringList(const QListWidget *list);

    core::AppMode m_mode;
    core::controllers::search::SearchRuntimePaths m_paths;
    QListWidget *m_roots = nullptr;
    QListWidget *m_excludes = nullptr;
    QList<QCheckBox *> m_typeBoxes; ///< In the order of their extension groups.
    QCheckBox *m_moreTextTypes = nullptr;
    QComboBox *m_textLength = nullptr;
    QComboBox *m_depth = nullptr;
    QComboBox *m_interval = nullptr;
    QCheckBox *m_autoRebuild = nullptr;
};
