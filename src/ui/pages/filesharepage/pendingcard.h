#pragma once

#include <QFrame>
#include <QStringList>

class QBoxLayout;
class QLabel;
class QPushButton;

namespace fileshare {

class SharePathList;

/// The files and folders of the next share, and what can be done with them. Object names:
/// SharePendingList, ShareDropHint, SharePendingStatus, ShareAddFilesButton, ShareAddFolderButton,
/// ShareRemoveSelectedButton, ShareClearButton, SharePortSettingsButton, ShareStartButton.
class PendingCard : public QFrame
{
    Q_OBJECT

public:
    explicit PendingCard(QWidget *parent = nullptr);

    QStringList paths() const;
    void addPaths(const QStringList &paths);
    void setPort(int port);
    /// Shows that a drop would be taken.
    void setDropping(bool isOver);

public slots:
    void removeSelected();
    void clearPaths();
    void updateStartButtonState();
    void updateDropHintGeometry();

signals:
    void addFilesRequested();
    void addFolderRequested();
    void portRequested();
    void startRequested();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildList();
    QBoxLayout *buildTools();
    QBoxLayout *buildFooter();
    void showState();

    int m_port = 0;
    int m_ignored = 0; ///< Of the paths that were just added, those that were listed already.
    SharePathList *m_list = nullptr;
    QLabel *m_dropHint = nullptr;
    QLabel *m_status = nullptr;
    QPushButton *m_removeSelected = nullptr;
    QPushButton *m_clear = nullptr;
    QPushButton *m_start = nullptr;
};

} // namespace fileshare
