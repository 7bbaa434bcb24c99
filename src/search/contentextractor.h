#pragma once

#include <QString>
#include <QStringList>

#include <atomic>

/// Turns one file into plain text for the full text index, at most 16384 characters. Office formats
/// go through external tools, zip-based ones through unzip. An empty string means no text; nothing
/// is ever reported. All functions may be called from any thread.
class ContentExtractor
{
public:
    /// `maxBytes` limits plain files only; every other format has its own cap. `cancel`, where
    /// given, is polled while a tool runs: once true the tool is killed and the text is empty.
    static QString readContentSnippet(const QString &path, int maxBytes,
                                      const std::atomic_bool *cancel = nullptr);

    /// `suffix` in lower case without the dot.
    static bool isArchiveExtension(const QString &suffix);

    /// Path of a tool, from the program's own "tools" folder or PATH; empty when it is missing.
    /// Each tool is looked for once a run.
    static QString resolveToolExecutable(const QString &tool);
};
