#pragma once

#include <QJsonArray>
#include <QVector>
#include <QWidget>

#include <functional>

/// One coloured cell a block of a verification. Its height follows from its width and the number of
/// blocks; it paints only the rows that are to be seen.
class BlockMapWidget : public QWidget
{
    Q_OBJECT

public:
    using ClickCallback = std::function<void(int index)>;

    explicit BlockMapWidget(QWidget *parent = nullptr);

    /// The `blockDetails` of a verification. Nothing is selected then.
    void setBlocks(const QJsonArray &blocks);
    const QJsonArray &blocks() const { return m_blocks; }
    /// Called with the index of the block that was clicked.
    void setClickCallback(const ClickCallback &callback) { m_clickCallback = callback; }
    /// -1 without one.
    int selectedIndex() const { return m_selectedIndex; }
    int hoveredIndex() const { return m_hoveredIndex; }

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    int columns() const;
    void followWidth();
    void setHovered(int index);
    void updateCell(int index);

    QJsonArray m_blocks;
    QVector<QColor> m_colors; ///< Of each block; reading the words anew for each cell is slow.
    int m_selectedIndex = -1;
    int m_hoveredIndex = -1;
    ClickCallback m_clickCallback;
};
