#pragma once

#include <QColor>
#include <QRect>
#include <QString>
#include <QVector>

namespace partitionselect {

/// Splits "/dev/sda1  XFS" at its blanks: the last word is the file system, the others, joined by
/// one blank, the path. A text of one word, or none, is all path, with the file system "未知".
void splitPathAndFs(const QString &text, QString *path, QString *fs);

/// Colour of the usage bar for a percentage.
QColor progressChunkColor(int usage);

/// "固态" or "机械", by the words in the disk's title.
QString diskTypeLabel(const QString &title);
/// "2 TB", "512 GB" or "1 TB", by the words in the disk's title alone.
QString diskSizeLabel(const QString &title);

/// The card that an arrow key leads to: the next or previous one in order, or the nearest in the
/// rows below or above. `current` itself at the ends and for any other key.
int nextCard(const QVector<QRect> &cards, int current, Qt::Key key);

} // namespace partitionselect
