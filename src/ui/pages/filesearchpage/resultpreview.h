#pragma once

#include <QFrame>
#include <QImage>
#include <QString>

class QLabel;

namespace filesearch {

/// What a preview shows of a file: a picture, or its first lines.
struct PreviewContent
{
    QImage image;
    QString text;
};

/// Reads a file for a preview; for a pool thread, since it waits for disk and tools.
PreviewContent readPreview(const QString &path);

/// A bubble beside a result row with a picture or the first lines of its file. It is filled in the
/// background and takes no focus, so that the arrow keys go on moving in the list.
class ResultPreview : public QFrame
{
    Q_OBJECT

public:
    explicit ResultPreview(QWidget *parent);

    /// Shows the file at the row `rect` of `viewport`, or hides a bubble that stands.
    void toggle(const QString &path, const QRect &rect, QWidget *viewport);

private:
    void show(const PreviewContent &content);
    void place();

    QLabel *m_label;
    QString m_path;
    QRect m_row; ///< On the screen.
};

} // namespace filesearch
