#pragma once

#include <QHash>
#include <QObject>

class QHeaderView;
class QMenu;
class QPoint;

namespace scanresults {

class ScanResultsModel;

/// Which columns of the result table show, and in which order. What decides stands first; a column
/// that says nothing hides itself once no more files come, unless the user wants to see it.
class ColumnChooser : public QObject
{
    Q_OBJECT

public:
    /// Both must outlive the chooser; `header` shows the model's columns already.
    ColumnChooser(QHeaderView *header, const ScanResultsModel *model, QObject *parent);

    /// Whether all files have come.
    void setComplete(bool isComplete);
    /// Looks again at what the columns hold.
    void refresh();
    /// Opens the menu that shows and hides columns. `position` in global coordinates.
    void popUp(const QPoint &position);

private:
    void restoreDefaults();
    bool isShown(int column) const;

    QHeaderView *m_header;
    const ScanResultsModel *m_model;
    QMenu *m_menu;
    QHash<int, bool> m_chosen; ///< By column: what the user said.
    bool m_isComplete = false;
};

} // namespace scanresults
