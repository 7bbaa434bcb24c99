#pragma once

#include <QLabel>

namespace ui {
namespace common {

/// Plain text label that wraps at words and, where a word is longer than a line, anywhere: a path
/// or a file name of hundreds of characters never widens its window. Otherwise a QLabel.
class WrapLabel : public QLabel
{
    Q_OBJECT

public:
    explicit WrapLabel(QWidget *parent = nullptr);
    explicit WrapLabel(const QString &text, QWidget *parent = nullptr);

    /// Width of the longest line without any wrapping, in logical pixels.
    int naturalWidth() const;

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    int frameExtent() const;
};

} // namespace common
} // namespace ui
