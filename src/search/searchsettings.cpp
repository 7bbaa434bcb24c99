#include "search/searchsettings.h"

#include "core/privatefile.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>

#include <limits>

using core::AppMode;
using core::controllers::search::SearchPathResolver;

namespace searchsettings {

namespace {

constexpr qint64 kMsPerHour = 3600000;

const QString kRoots = QStringLiteral("search/indexRoots");
const QString kExcludeDirs = QStringLiteral("search/excludeDirs");
const QString kFtsExtensions = QStringLiteral("search/ftsExtensions");
const QString kMoreTextTypes = QStringLiteral("search/moreTextTypes");
const QString kIndexedTextBytes = QStringLiteral("search/indexedTextBytes");
const QString kAutoRebuild = QStringLiteral("search/autoRebuild");
const QString kInotifyMaxDepth = QStringLiteral("search/inotifyMaxDepth");
const QString kIncrementalIntervalHours = QStringLiteral("search/incrementalIntervalHours");

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '));
}

int intValue(const QSettings &file, const QString &key, int fallback)
{
    bool ok = false;
    const int value = file.value(key, fallback).toInt(&ok);
    return ok ? value : fallback;
}

/// Lists that the mode's file does not have come from the base file.
void readBaseFile(const Paths &paths, const QSettings &active, SearchSettings *settings)
{
    const QSettings base(baseConfigPath(paths), QSettings::IniFormat);
    settings->roots = base.value(kRoots).toStringList();
    if (!active.contains(kExcludeDirs) && base.contains(kExcludeDirs))
        settings->excludeDirs = base.value(kExcludeDirs).toStringList();
    if (!active.contains(kFtsExtensions) && base.contains(kFtsExtensions))
        settings->ftsExtensions = base.value(kFtsExtensions).toStringList();
}

} // namespace

QString activeDbPath(const Paths &paths)
{
    if (!paths.databasePath.isEmpty())
        return paths.databasePath;
    return QDir::tempPath() + QStringLiteral("/morvane_search_disabled.db");
}

QString activeConfigPath(const Paths &paths)
{
    if (paths.mode == AppMode::normal || paths.primaryHome.isEmpty())
        return paths.configPath;
    return QDir::cleanPath(paths.primaryHome +
                           QStringLiteral("/.config/morvane/morvane_livecd.conf"));
}

QString baseConfigPath(const Paths &paths)
{
    return paths.configPath;
}

SearchSettings defaults(const Paths &paths)
{
    const bool normal = paths.mode == AppMode::normal;
    SearchSettings settings;
    settings.roots = storedPaths(paths, paths.defaultRoots);
    settings.excludeDirs = words(".git node_modules .cache __pycache__ .venv .tox .morvane_vault");
    settings.ftsExtensions = words("doc docx xls xlsx ppt pptx wps et dps pdf ofd txt md");
    settings.autoRebuild = normal;
    settings.inotifyMaxDepth = normal ? 5 : -1;
    settings.incrementalIntervalHours = normal ? 24 : 0;
    return settings;
}

SearchSettings load(const Paths &paths)
{
    const SearchSettings initial = defaults(paths);
    SearchSettings settings;
    const QSettings file(activeConfigPath(paths), QSettings::IniFormat);
    settings.roots = file.value(kRoots).toStringList();
    settings.excludeDirs = file.value(kExcludeDirs, initial.excludeDirs).toStringList();
    settings.ftsExtensions = file.value(kFtsExtensions, initial.ftsExtensions).toStringList();
    settings.moreTextTypes = file.value(kMoreTextTypes, initial.moreTextTypes).toBool();
    settings.indexedTextBytes = intValue(file, kIndexedTextBytes, initial.indexedTextBytes);
    settings.autoRebuild = file.value(kAutoRebuild, initial.autoRebuild).toBool();
    settings.inotifyMaxDepth = intValue(file, kInotifyMaxDepth, initial.inotifyMaxDepth);
    settings.incrementalIntervalHours =
        intValue(file, kIncrementalIntervalHours, initial.incrementalIntervalHours);

    if (settings.roots.isEmpty() && activeConfigPath(paths) != baseConfigPath(paths))
        readBaseFile(paths, file, &settings);
    if (settings.roots.isEmpty())
        settings.roots = initial.roots;
    if (settings.excludeDirs.isEmpty())
        settings.excludeDirs = initial.excludeDirs;
    settings.ftsExtensions = withDocumentBlock(settings.ftsExtensions);
    if (!textLengths().contains(settings.indexedTextBytes))
        settings.indexedTextBytes = initial.indexedTextBytes;
    return settings;
}

bool save(const Paths &paths, const SearchSettings &settings, QString *error)
{
    const QString path = activeConfigPath(paths);
    if (path.isEmpty()) {
        if (error)
            *error = QStringLiteral("没有可用的配置文件。");
        return false;
    }
    // The driver of the settings reports what cannot be made.
    (void)core::makePrivateDirectory(QFileInfo(path).absolutePath());
    QSettings file(path, QSettings::IniFormat);
    file.setValue(kRoots, settings.roots);
    file.setValue(kExcludeDirs, settings.excludeDirs);
    file.setValue(kFtsExtensions, settings.ftsExtensions);
    file.setValue(kMoreTextTypes, settings.moreTextTypes);
    file.setValue(kIndexedTextBytes, settings.indexedTextBytes);
    file.setValue(kAutoRebuild, settings.autoRebuild);
    file.setValue(kInotifyMaxDepth, settings.inotifyMaxDepth);
    file.setValue(kIncrementalIntervalHours, settings.incrementalIntervalHours);
    file.sync();
    core::restrictFile(path); // It has been replaced by a new one.
    if (file.status() == QSettings::NoError)
        return true;
    if (error)
        *error = QStringLiteral("无法写入配置文件 %1").arg(path);
    return false;
}

QStringList withDocumentBlock(const QStringList &extensions)
{
    static const QStringList kBlock =
        words("doc docx xls xlsx ppt pptx pdf rtf csv txt odt ods odp ofd epub wps et dps");
    QStringList result;
    bool holdsDocuments = false;
    for (const QString &extension : extensions) {
        const QString entry = extension.trimmed().toLower();
        if (entry.isEmpty() || result.contains(entry))
            continue;
        holdsDocuments = holdsDocuments || kBlock.contains(entry);
        result.append(entry);
    }
    if (!holdsDocuments)
        return result;
    for (const QString &extension : kBlock) {
        if (!result.contains(extension))
            result.append(extension);
    }
    return result;
}

QStringList contentExtensions(const SearchSettings &settings)
{
    QStringList result = settings.ftsExtensions;
    if (!settings.moreTextTypes)
        return result;
    const QStringList more = words("htm html eml mbox srt log zip");
    for (const QString &extension : more) {
        if (!result.contains(extension))
            result.append(extension);
    }
    return result;
}

QList<int> textLengths()
{
    return {16 * 1024, 256 * 1024, 16 * 1024 * 1024};
}

QStringList runtimePaths(const Paths &paths, const QStringList &stored)
{
    QStringList result;
    for (const QString &path : stored)
        result.append(SearchPathResolver::toRuntimePath(paths, path));
    return result;
}

QStringList storedPaths(const Paths &paths, const QStringList &runtime)
{
    QStringList result;
    for (const QString &path : runtime)
        result.append(SearchPathResolver::toStoredPath(paths, path));
    return result;
}

QStringList internalSearchStateDirs(const Paths &paths)
{
    QStringList result;
    const QStringList files = {activeConfigPath(paths), baseConfigPath(paths), activeDbPath(paths)};
    for (const QString &file : files) {
        const QString directory = file.isEmpty() ? QString() : QFileInfo(file).absolutePath();
        if (!directory.isEmpty() && !result.contains(directory))
            result.append(directory);
    }
    return result;
}

QStringList effectiveExcludeDirs(const Paths &paths, const SearchSettings &settings)
{
    QStringList result = runtimePaths(paths, settings.excludeDirs);
    const QStringList internal = internalSearchStateDirs(paths);
    for (const QString &directory : internal) {
        const QString clean = QDir::cleanPath(directory);
        if (!result.contains(clean))
            result.append(clean);
    }
    return result;
}

bool watchesChanges(const Paths &paths, const SearchSettings &settings)
{
    return paths.mode == AppMode::normal && settings.inotifyMaxDepth >= 0;
}

int incrementalIntervalMs(const SearchSettings &settings)
{
    if (settings.incrementalIntervalHours <= 0)
        return 0;
    const qint64 ms = settings.incrementalIntervalHours * kMsPerHour;
    return static_cast<int>(qMin<qint64>(ms, std::numeric_limits<int>::max()));
}

} // namespace searchsettings
