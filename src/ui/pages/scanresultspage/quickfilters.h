#pragma once

#include "ui/pages/scanresultspage/resultarrangement.h"

#include <QWidget>

class QActionGroup;
class QPushButton;

namespace ui {
namespace common {
class SegmentedToggle;
}
} // namespace ui

namespace scanresults {

/// Filters that are one click away: all, ticked or whole files, and how long ago they were deleted.
class QuickFilters : public QWidget
{
    Q_OBJECT

public:
    explicit QuickFilters(QWidget *parent);

    ResultFilter::Quick kind() const;
    /// Start of the chosen time before `now`, in milliseconds since the epoch; 0 for all times.
    qint64 deletedSince(qint64 now) const;
    /// Accepts all again.
    void reset();

signals:
    void changed();

private:
    void makeTimeMenu();
    void showTime();

    ui::common::SegmentedToggle *m_kind;
    QPushButton *m_time;
    QActionGroup *m_times;
};

} // namespace scanresults
