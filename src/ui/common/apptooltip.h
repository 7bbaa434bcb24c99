#pragma once

#include <QHash>
#include <QPointer>
#include <QWidget>

class QTimer;

namespace ui {
namespace common {

class WrapLabel;

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

    /// Makes `anchor` show this tip whenever the mouse rests on it. A second call changes the
    /// texts, also those of a tip that is showing.
    static void install(QWidget *anchor, const QString &title, const QString &body,
                        int delayMs = 400);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    struct Tip
    {
        QString title;
        QString body;
        int delayMs;
    };

    AppToolTip();
    static AppToolTip *instance();

    void scheduleShow(QWidget *anchor, const QString &title, const QString &body, int delayMs);
    void showNow();
    void reposition();
    void dismiss();
    void dismissWithAnchor();

    QHash<const QObject *, Tip> m_installed;
    QPointer<QWidget> m_anchor;
    QString m_titleText;
    QString m_bodyText;
    WrapLabel *m_title;
    WrapLabel *m_body;
    QTimer *m_delay;
};

} // namespace common
} // namespace ui
