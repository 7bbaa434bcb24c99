#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

/// What vaults look like on disk, for all who read or write them. A vault is a directory beside the
/// files of its owner:
///
///     <parent>/.morvane_vault/.meta/<id>.json   the record of a protected file
///     <parent>/.morvane_vault/<id>.dat          its bytes
namespace vault {

constexpr char kVaultDir[] = ".morvane_vault";
constexpr char kMetaDir[] = ".meta";
constexpr char kRecordSuffix[] = ".json";
constexpr char kContentSuffix[] = ".dat";

/// Larger record files are not looked into: a record is a few hundred bytes.
constexpr int kMaxRecordBytes = 1024 * 1024;
/// What is read of one vault at most.
constexpr int kMaxRecords = 200000;
constexpr qint64 kMaxVaultText = 32 * 1024 * 1024; ///< Characters of all its records.

/// Whether the id can be part of a file name without leading anywhere else: no separators, no
/// control characters, no leading dot, at most 200 bytes.
bool isVaultId(const QString &id);

/// Whether the name is one of record files. Hidden ones are still being written.
bool isRecordFileName(const QByteArray &name);

/// The record that a file of this name holds, with the keys "id", "fileName", "originalPath" and,
/// where they are numbers, "fileSize" (bytes) and "deletedAt" (seconds since the epoch); other keys
/// are left out. Without an id of its own a record has that of its file's name. Empty if the bytes
/// hold no record, or one whose id cannot be trusted.
QJsonObject recordFrom(const QByteArray &json, const QString &recordFileName);

/// The characters that such a record holds.
qint64 textSize(const QJsonObject &record);

} // namespace vault
