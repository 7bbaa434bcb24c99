#pragma once

#include <QLayout>
#include <QList>
#include <QStyle>

namespace ui {
namespace common {

/// Lays items out from left to right and wraps them; the height follows the width. A negative
/// margin or spacing means the style's own.
class FlowLayout : public QLayout
{
public:
    explicit FlowLayout(QWidget *parent, int margin = -1, int hSpacing = -1, int vSpacing = -1);
    ~FlowLayout() override;

    void addItem(QLayoutItem *item) override;
    int count() const override;
    QLayoutItem *itemAt(int index) const override;
    QLayoutItem *takeAt(int index) override;
    Qt::Orientations expandingDirections() const override;
    bool hasHeightForWidth() const override;
    int heightForWidth(int width) const override;
    QSize minimumSize() const override;
    QSize sizeHint() const override;
    void setGeometry(const QRect &rect) override;

private:
    int arrange(const QRect &rect, bool apply) const;
    int horizontalSpacing() const;
    int verticalSpacing() const;
    int styleSpacing(QStyle::PixelMetric metric) const;

    QList<QLayoutItem *> m_items;
    int m_hSpacing;
    int m_vSpacing;
};

} // namespace common
} // namespace ui
