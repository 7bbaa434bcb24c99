#pragma once

#include <QList>
#include <QWidget>

class QLabel;
class QPropertyAnimation;
class QTimer;
class QVBoxLayout;
class SidebarNavButton;

/// The navigation at the window's left edge. Collapsed it is a strip of icons that opens over the
/// content while the mouse is on it; pinned it stays open. It follows its parent's height.
class CollapsibleSidebar : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(int currentWidth READ currentWidth WRITE setCurrentWidth)

public:
    static constexpr int collapsedWidth = 60;
    static constexpr int expandedWidth = 175;

    explicit CollapsibleSidebar(QWidget *parent);

    /// Starts a section. An emphasized header is drawn in the accent colour.
    void addSectionHeader(const QString &title, bool emphasized);
    void addButton(SidebarNavButton *button);
    /// Keeps the entries at the top; call once, after the last of them.
    void addClosingStretch();

    int currentWidth() const { return m_currentWidth; }
    void setCurrentWidth(int width);

    void expand();
    void collapse();
    /// Jumps to the pinned or the collapsed width; does nothing without a change.
    void setPinned(bool pinned);
    bool isPinned() const { return m_pinned; }

    /// Shows or hides the labels to suit the width.
    void syncChildStates();

protected:
    void enterEvent(QEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildHeader();
    void animateWidth(int target);
    void setShadow(bool visible);

    int m_currentWidth = collapsedWidth;
    bool m_pinned = false;
    QVBoxLayout *m_layout;
    QPropertyAnimation *m_animation;
    QTimer *m_collapseTimer;
    QLabel *m_wordmark = nullptr;
    QList<QLabel *> m_headers;
    QList<SidebarNavButton *> m_buttons;
};
