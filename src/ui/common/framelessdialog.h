#pragma once

#include <QDialog>

class QHBoxLayout;
class QPushButton;
class QVBoxLayout;

namespace ui {
namespace common {

class FramelessWindowController;
class WindowTitleBar;

/// Base of the product's dialogs: frame, title bar with the window's title, content with
/// the dialog padding, and a row of buttons at the lower right. Under Wayland the system decorates
/// the dialog. Esc and the close button reject; Enter takes the default button.
class FramelessDialog : public QDialog
{
    Q_OBJECT

public:
    enum class Sizing {
        FitContent, ///< Fixed width, and the height that the content needs.
        Resizable,  ///< Sized by the user from what resize() said.
    };

    explicit FramelessDialog(QWidget *parent = nullptr, Sizing sizing = Sizing::FitContent);

    /// Width of a FitContent dialog in logical pixels, 420 to 680; grows with the font scale.
    void setContentWidth(int width);

protected:
    /// Where a dialog puts its content; the button row follows below.
    QVBoxLayout *contentLayout() const { return m_content; }
    /// Adds a button to the right end of the row, so the main one is added last. The role
    /// "primary" makes it the default button. Connect its clicked() to what it does.
    QPushButton *addButton(const QString &text, const QString &role = QString());
    /// Makes a button that addButton() added the last one of the row.
    void moveButtonToEnd(QPushButton *button);
    /// Puts something at the left end of the button row.
    void addToButtonRow(QWidget *widget);
    /// Brings a FitContent dialog to the height of its content. Runs by itself on showing.
    void fitToContent();
    /// Room for the content between the paddings of a FitContent dialog, in logical pixels.
    int contentWidth() const;

    void showEvent(QShowEvent *event) override;

private:
    void buildFrame();
    QHBoxLayout *buttonRow();

    Sizing m_sizing;
    bool m_customChrome;
    int m_width;
    WindowTitleBar *m_titleBar;
    QVBoxLayout *m_padded;
    QVBoxLayout *m_content;
    QHBoxLayout *m_buttons;
};

} // namespace common
} // namespace ui
