#pragma once

#include <QByteArray>
#include <QMap>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <atomic>
#include <mutex>

namespace search {

/// How long a tool may run, in milliseconds, and how much of its output is kept, in bytes.
struct RunLimits
{
    int runMs;
    int maxBytes;
};

/// All limits of the extraction tools; times in milliseconds.
struct ToolLimits
{
    int startMs = 5000;
    int killWaitMs = 2000;
    RunLimits document{15000, 16384};
    RunLimits unzip{10000, 524288};
    /// For all runs over one zip document: more than any chain of entries with text needs.
    int zipRuns = 256;
    int zipMs = 30000;
};

/// How a run ended and the first bytes that the tool printed.
struct ToolOutput
{
    bool ended = false; ///< the tool ended by itself, in time and not by a signal
    int exitCode = -1;
    QByteArray bytes; ///< standard output up to the cap
    bool cut = false; ///< more than the cap was printed
};

/// Finds and runs the external tools that turn documents into text. Safe to use from several
/// threads at once; none of them needs an event loop.
class ToolRunner
{
public:
    /// `toolsDir` is searched before PATH; `libraryDir`, where it exists, goes in front of the
    /// tools' LD_LIBRARY_PATH.
    ToolRunner(const QString &toolsDir, const QString &libraryDir,
               const ToolLimits &limits = ToolLimits());

    /// The runner of this process, with the folders that belong to the installed program.
    static ToolRunner &shared();

    const ToolLimits &limits() const { return m_limits; }

    /// Path of a tool or an empty string. Each tool is looked for once, also a missing one.
    QString resolveToolExecutable(const QString &tool);

    /// Runs a tool with no input and its error output discarded. Once `cancel` is true the tool is
    /// killed within 50 ms. Whatever is killed, by `cancel` or by the time limit, takes the
    /// processes that it started along.
    ToolOutput run(const QString &tool, const QStringList &arguments, const RunLimits &runLimits,
                   const std::atomic_bool *cancel);

    /// The text that a tool prints; empty if it is missing, fails, is cancelled or takes too long.
    QString extractViaTool(const QString &tool, const QStringList &arguments,
                           const RunLimits &runLimits, const std::atomic_bool *cancel);

private:
    const QString m_toolsDir;
    const ToolLimits m_limits;
    QProcessEnvironment m_environment; ///< empty: the tools inherit ours
    /// Guards m_paths, never held during a search or a run. Of the standard library, because race
    /// detectors do not see a lock inside Qt.
    std::mutex m_mutex;
    QMap<QString, QString> m_paths;
};

inline bool isCancelled(const std::atomic_bool *cancel)
{
    return cancel && cancel->load();
}

/// Text of a tool: UTF-8, or the locale's encoding where the bytes are not valid UTF-8 but are
/// valid there. With `cut` the bytes end at a cap, and an incomplete last character is dropped
/// rather than taken for a sign of the wrong encoding.
QString decodeToolText(const QByteArray &bytes, bool cut);

/// Bytes of a file as UTF-8, or in the locale's encoding if that gives nothing. `cut` as above.
QString decodePlainText(const QByteArray &bytes, bool cut);

} // namespace search
