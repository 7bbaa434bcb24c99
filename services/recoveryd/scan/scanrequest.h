#pragma once

#include <QJsonObject>
#include <QString>

namespace services {
namespace recoveryd {

/// What scan.start asks for.
struct ScanRequest
{
    enum class Mode { Quick, Deep };
    enum class FileScope { All, Documents, Media, Code };

    QString devicePath;
    QString fileSystem; ///< The client's word; only kept.
    Mode mode = Mode::Quick;
    FileScope fileScope = FileScope::All;
    /// Deep scans only: whether what file system structures tell is looked at first.
    bool withMetadata = true;
    /// Deep scans only: the whole partition instead of its free blocks.
    bool isFullDisk = false;

    /// "quick" or "deep".
    QString modeWord() const;
    /// Whether files of a type, as a suffix or a word such as "PDF", are asked for.
    bool wants(const QString &type) const;
    bool isDeep() const { return mode == Mode::Deep; }
};

/// The request as it is kept with its session, in the keys of scan.start.
QJsonObject toJson(const ScanRequest &request);

/// Reads the params of scan.start. The settings may stand in `advancedSettings` or beside it;
/// missing ones have their defaults. False, with the reason, on a wrong type or an unknown word.
[[nodiscard]] bool parseScanRequest(const QJsonObject &params, ScanRequest *request,
                                    QString *error);

} // namespace recoveryd
} // namespace services
