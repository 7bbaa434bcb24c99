#pragma once

#include <QFrame>

class QLabel;
class QProgressBar;

namespace ui {
namespace common {
class StatBlock;
class WrapLabel;
} // namespace common
} // namespace ui

namespace recoveryprogress {

class PathLink;

/// How far the recovery is: state, bar, percentage and the four figures.
class ProgressCard : public QFrame
{
    Q_OBJECT

public:
    explicit ProgressCard(QWidget *parent = nullptr);

    void setState(const QString &text, const QString &tone);
    /// What to know about the state; empty hides the line.
    void setHint(const QString &hint);
    void setPercent(int percent);
    void setFileCount(int count);
    void setProcessed(const QString &text);
    void setVolume(const QString &text);
    void setTarget(const QString &path);

signals:
    /// The target path was clicked.
    void targetActivated();

private:
    QWidget *buildFigures();

    QLabel *m_state;
    QLabel *m_percent;
    QProgressBar *m_bar;
    ui::common::WrapLabel *m_hint;
    ui::common::StatBlock *m_count = nullptr;
    ui::common::StatBlock *m_processed = nullptr;
    ui::common::StatBlock *m_volume = nullptr;
    PathLink *m_target = nullptr;
};

} // namespace recoveryprogress
