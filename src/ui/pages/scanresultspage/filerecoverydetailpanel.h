#pragma once

#include <QFrame>
#include <QVector>

class QFormLayout;
class QPropertyAnimation;
class QPushButton;

namespace ui {
namespace common {
class WrapLabel;
}
} // namespace ui

namespace scanresults {

/// What is known about one file, in a panel that slides in from the right over its host and keeps
/// to the host's size. Esc closes it.
class FileRecoveryDetailPanel : public QFrame
{
    Q_OBJECT

public:
    struct Values
    {
        QString name;
        QString size;
        QString type;
        QString path;
        QString blockStart;
        QString source;
        QString integrity;
        QString reason;
        QString probability;
        QString contiguity;
    };

    explicit FileRecoveryDetailPanel(QWidget *parent = nullptr);

    /// Makes the panel a child of `host`, closed.
    void attachToHost(QWidget *host);
    /// Takes the place that belongs to the host's size and the state of the panel, at once.
    void syncGeometry();
    void showAnimated();
    void hideAnimated();
    /// True from the start of opening to the start of closing.
    bool isOpened() const { return m_opened; }
    /// An empty value shows "-".
    void setDetailValues(const Values &values);

    bool eventFilter(QObject *watched, QEvent *event) override;

signals:
    void closed();

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    QWidget *makeHead();
    QWidget *makeRows();
    QRect placeIn(const QSize &host, bool opened) const;
    void slideTo(bool opened);

    QWidget *m_host = nullptr;
    QPushButton *m_close = nullptr;
    QVector<ui::common::WrapLabel *> m_values; ///< In the order of Values.
    QPropertyAnimation *m_slide;
    bool m_opened = false;
};

} // namespace scanresults
