#pragma once

#include <QPointer>
#include <QWidget>

class QLabel;
class QTimer;

namespace ui {
namespace common {

/// The product's own tool tip: one top-level window that follows the theme on every desktop. At
/// most 320 pixels wide, below its anchor, or above where the screen ends.
class AppToolTip : public QWidget
{
    Q_OBJECT

public:
    /// Shows the tip at `anchor` after `delayMs`; below 1 at once. An empty title is left out. The
    /// anchor's leaving, clicks, hiding or end dismiss it.
    static void show(QWidget *anchor, const QString &title, const QString &body, int delayMs);
    static void show(QWidget *anchor, const QString &body, int delayMs);
    static void hide();

    /// Makes `anchor` show this tip whenever the mouse rests on it.
    static void install(QWidget *anchor, const QString &title, const QString &body,
                        int delayMs = 400);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    AppToolTip();
    static AppToolTip *instance();

    void scheduleShow(QWidget *anchor, const QString &title, const QString &body, int delayMs);
    void showNow();
    void reposition();
    void dismiss();

    QPointer<QWidget> m_anchor;
    QString m_titleText;
    QString m_bodyText;
    QLabel *m_title;
    QLabel *m_body;
    QTimer *m_delay;
};

} // namespace common
} // namespace ui
