#pragma once

#include <QFrame>
#include <QList>
#include <QStringList>

class QPushButton;

namespace ui {
namespace common {

/// A row of exclusive choices drawn as one pill.
class SegmentedToggle : public QFrame
{
    Q_OBJECT

public:
    explicit SegmentedToggle(const QStringList &labels, QWidget *parent = nullptr);

    int currentIndex() const { return m_current; }

public slots:
    /// Does nothing for a bad index or without a change.
    void setCurrentIndex(int index);

signals:
    void currentIndexChanged(int index);

private:
    QList<QPushButton *> m_buttons;
    int m_current = 0;
};

} // namespace common
} // namespace ui
