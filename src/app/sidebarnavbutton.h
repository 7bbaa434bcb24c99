#pragma once

#include "ui/common/iconwidget.h"

#include <QPushButton>

class QPropertyAnimation;

/// One entry of the sidebar: an icon and, unless collapsed, a label beside it.
class SidebarNavButton : public QPushButton
{
    Q_OBJECT
    /// Strength of the hover or active background, 0 to 1.
    Q_PROPERTY(double bgProgress READ bgProgress WRITE setBgProgress)

public:
    SidebarNavButton(const QString &label, ui::common::IconWidget::IconType icon,
                     QWidget *parent = nullptr);

    double bgProgress() const { return m_bgProgress; }
    void setBgProgress(double progress);
    /// Moves bgProgress to `target` over 150 ms.
    void animateTo(double target);

    /// Marks the entry of the page that is shown.
    void setActive(bool active);
    bool isActive() const { return m_active; }
    /// A collapsed entry shows its icon only.
    void setCollapsed(bool collapsed);
    bool isCollapsed() const { return m_collapsed; }
    ui::common::IconWidget::IconType iconType() const { return m_icon; }
    /// Where the label goes when it shows; a longer one is elided.
    QRect labelRect() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void enterEvent(QEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    QFont labelFont() const;

    ui::common::IconWidget::IconType m_icon;
    QPropertyAnimation *m_animation;
    double m_bgProgress = 0.0;
    bool m_active = false;
    bool m_collapsed = false;
};
