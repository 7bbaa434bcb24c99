#pragma once

#include <QSet>
#include <QString>
#include <QVariantList>
#include <QWidget>

class QLabel;
class QPushButton;
class QScrollArea;
class QStackedWidget;
class QVBoxLayout;

namespace wechatclean {

/// The directories that may be scanned, each a card with a check box, and what to do with them; the
/// empty card while there is none. Object names: WechatDirectoryStack, WechatEmptyCard,
/// WechatProfileList, WechatProfileCard (property `profilePath`), WechatProfileCheck,
/// WechatProfileType, WechatProfilePath, WechatProfileDirs, WechatProfileRemove,
/// WechatAddDirButton, WechatRedetectButton, WechatBackToResultsButton, WechatStartScanButton.
class DirectoryPanel : public QWidget
{
    Q_OBJECT

public:
    explicit DirectoryPanel(QWidget *parent = nullptr);

    /// Shows these profile maps; those of `deselected` paths without a check mark.
    void setProfiles(const QVariantList &profiles, const QSet<QString> &deselected);
    /// Whether there are results to go back to.
    void setHasResults(bool hasResults);

signals:
    void addRequested();
    void redetectRequested();
    void startRequested();
    void backRequested();
    void removeRequested(const QString &profilePath);
    void selectionChanged(const QString &profilePath, bool selected);

private:
    QWidget *buildEmptyCard();
    QWidget *buildList();
    QWidget *buildButtons();
    QWidget *makeCard(const QVariantMap &profile, bool selected);

    QStackedWidget *m_stack;
    QScrollArea *m_list = nullptr;
    QPushButton *m_add = nullptr;
    QPushButton *m_back = nullptr;
    QPushButton *m_start = nullptr;
};

} // namespace wechatclean
