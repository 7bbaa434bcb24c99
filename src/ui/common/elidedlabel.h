#pragma once

#include <QLabel>

namespace ui {
namespace common {

/// One-line plain text label that shortens its text to the room it has: names at the end, paths in
/// the middle. Shows the full text as a tool tip while it is shortened.
class ElidedLabel : public QLabel
{
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget *parent = nullptr);
    ElidedLabel(const QString &text, Qt::TextElideMode mode, QWidget *parent = nullptr);

    void setElideMode(Qt::TextElideMode mode);
    /// True while the text doesn't fit.
    bool isElided() const;

    QSize minimumSizeHint() const override;

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    QString shownText() const;
    QRect textArea() const;

    Qt::TextElideMode m_mode = Qt::ElideRight;
};

} // namespace common
} // namespace ui
