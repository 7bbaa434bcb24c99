#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

/// Disk images and files for tests of recovery. Images come from the real tools of e2fsprogs.
namespace diskimages {

/// Runs a program of the system to its end, searched for in the places of administrators, too.
[[nodiscard]] bool runTool(const QString &tool, const QStringList &arguments, QString *error);
/// Runs mke2fs on a new file of `sizeKiB`, filled from `sourceDir` unless that is empty.
[[nodiscard]] bool makeExt(const QString &image, const QString &sourceDir, int sizeKiB,
                           const QStringList &options, QString *error);
/// One command of debugfs with writing allowed, for instance "rm /a".
[[nodiscard]] bool debugfs(const QString &image, const QString &command, QString *error);

/// Writes a file, or overwrites bytes of an existing one from `offset` on.
[[nodiscard]] bool write(const QString &path, const QByteArray &bytes);
[[nodiscard]] bool patch(const QString &path, qint64 offset, const QByteArray &bytes);
QByteArray readAll(const QString &path);

/// Bytes without pattern, the same for the same seed, in which no known file begins or ends.
QByteArray noise(int length, quint32 seed);

/// Files of each format, of at least `payload` bytes, and different for each seed.
QByteArray png(int payload, quint32 seed = 1);
QByteArray jpeg(int payload, quint32 seed = 1);
QByteArray gif(int payload, quint32 seed = 1);
QByteArray pdf(int payload, quint32 seed = 1);
/// A PDF with an update appended: two end marks.
QByteArray updatedPdf(int payload, quint32 seed = 1);
/// Zip containers with the entries that tell the kind: "docx", "xlsx", "pptx", "odt", "ods", "odp",
/// "zip".
QByteArray container(const QString &kind, int payload, quint32 seed = 1);

} // namespace diskimages
