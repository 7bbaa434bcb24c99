#pragma once

#include "ui/common/utils/protectedfiles.h"

#include <QFrame>
#include <QStringList>

class QBoxLayout;
class QLabel;
class QLineEdit;
class QPushButton;
class QTimer;

namespace ui {
namespace common {
class ProtectedFileTree;
}
} // namespace ui

namespace realtimeprotection {

/// The protected files, a search among them, and what can be done with them.
class FileListCard : public QFrame
{
    Q_OBJECT

public:
    explicit FileListCard(QWidget *parent = nullptr);

    /// `totalCount` stands in the heading.
    void showFiles(const QVector<protectedfiles::ProtectedFile> &files, int totalCount);
    /// Search and buttons. Without a connection nothing is searched for any more, and an empty list
    /// says why it is empty.
    void setConnected(bool connected);
    /// Shows or hides all but the heading.
    void setContentVisible(bool visible);

    QStringList checkedIds() const;
    /// What the search box holds.
    QString filter() const;

signals:
    /// The filter has changed and stands still since.
    void searchRequested();
    void restoreRequested();
    void deleteRequested();
    void clearRequested();

private:
    QBoxLayout *buildHeading();
    QBoxLayout *buildActions();
    void buildTree();
    void showCheckedCount(int count);
    void updateButtons();
    void updateEmptyState();

    QLabel *m_heading = nullptr;
    QLineEdit *m_search = nullptr;
    QPushButton *m_restore = nullptr;
    QPushButton *m_delete = nullptr;
    QPushButton *m_clear = nullptr;
    QLabel *m_checked = nullptr;
    ui::common::ProtectedFileTree *m_tree = nullptr;
    QTimer *m_searchTimer;
    bool m_isConnected = false;
    bool m_isRead = false; ///< A list has come.
    int m_totalCount = 0;  ///< Of the list without a filter, as the service told it.
    int m_checkedCount = 0;
};

} // namespace realtimeprotection
