#pragma once

#include "ui/pages/diskanalyzerpage/treemapitems.h"

#include <QRectF>
#include <QWidget>

/// The blocks of a directory as areas. A click, Enter or the wheel turned forward over it goes down
/// into one, Backspace and the wheel turned back go up, the arrow keys move among them. It knows no
/// tree: its owner follows the signals.
class TreemapWidget : public QWidget
{
    Q_OBJECT

public:
    explicit TreemapWidget(QWidget *parent = nullptr);

    void setItems(const QVector<diskanalyzer::TreemapItem> &items);
    const QVector<diskanalyzer::TreemapItem> &items() const { return m_items; }
    /// Where a block stands, in the widget's coordinates.
    QRectF rectOf(int index) const { return m_rects.value(index); }
    /// The block that the keyboard is on; -1 without any.
    int currentIndex() const { return m_current; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

signals:
    /// The user wants to see what is in the subdirectory of this number.
    void directoryActivated(int childRow);
    void upRequested();

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;

private:
    void arrangeBlocks();
    int blockAt(const QPointF &position) const;
    void setHovered(int index);
    void setCurrent(int index);
    void activate(int index);
    void paintBlock(QPainter *painter, int index) const;

    QVector<diskanalyzer::TreemapItem> m_items;
    QVector<QRectF> m_rects;
    int m_current = -1;
    int m_hovered = -1;
    int m_pressed = -1;
    int m_turned = 0; ///< Of the wheel since the last level, in eighths of a degree.
};
