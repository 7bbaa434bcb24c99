#pragma once

#include <QFrame>
#include <QString>

class QLabel;
class QPushButton;

namespace ui {
namespace common {
class ElidedLabel;
}
} // namespace ui

namespace filesearch {

/// Offers to build the index that isn't there yet.
class FirstUseCard : public QFrame
{
    Q_OBJECT

public:
    explicit FirstUseCard(QWidget *parent = nullptr);

signals:
    void createRequested();
    void dismissed();
};

/// What a running build is doing, with a way to stop it.
class BuildProgressCard : public QFrame
{
    Q_OBJECT

public:
    explicit BuildProgressCard(QWidget *parent = nullptr);

    /// Ready for the next build.
    void reset();
    void setText(const QString &text);

signals:
    void stopRequested();

private:
    ui::common::ElidedLabel *m_text;
    QPushButton *m_stop;
};

} // namespace filesearch
