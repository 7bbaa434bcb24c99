#pragma once

#include <QString>

namespace diskanalyzer {

/// "512 B", "1.5 KB", "20.0 MB", "2048.0 GB": 1024 to the unit, none above GB. Less than 0 counts
/// as 0.
QString formatSize(qint64 bytes);

/// Share of `part` in `whole` in percent, 0 to 100; 0 of an empty whole.
double sharePercent(qint64 part, qint64 whole);
/// "12.3%"; "<0.1%" for what is there but would round to nothing.
QString percentText(double percent);

QString selectedFilesText(int count, qint64 bytes);
/// Question before one file goes to the trash or is deleted; the latter reaches the vault if
/// `toVault`.
QString deleteOneText(const QString &path, bool toVault);
/// The same for several files, of which `vaultCount` reach the vault.
QString deleteManyText(int count, int vaultCount);
/// What the button says that deletes without the trash.
QString deleteLabel(int count, int vaultCount);
/// What is added to a question without a choice: what becomes of the files.
QString deletedFilesText(int count, int vaultCount);

} // namespace diskanalyzer
