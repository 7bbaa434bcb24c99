#pragma once

#include "share/sharerecords.h"

#include <QFrame>
#include <QStringList>

class QGridLayout;
class QLabel;
class QListWidget;
class QPushButton;
class QTimer;

namespace ui {
namespace common {
class ElidedLabel;
class StatusPill;
} // namespace common
} // namespace ui

namespace fileshare {

/// What one share is: its parameters, counters and links. Object names: ShareDetailContent,
/// ShareDetailStatus, ShareDetailPort, ShareDetailCreated, ShareDetailDuration,
/// ShareDetailExpires, ShareDetailDownloads, ShareDetailUploads, ShareDetailPermission,
/// ShareUrlList, ShareUrlHint, ShareCopyUrlButton.
class ViewCard : public QFrame
{
    Q_OBJECT

public:
    explicit ViewCard(QWidget *parent = nullptr);

    void showSession(const ShareSession &session, const QStringList &urls);

public slots:
    /// Puts the selected link on the clipboard and says so for a while.
    void copySelectedUrl();

private:
    void buildFacts(QGridLayout *grid);
    void buildUrls(QGridLayout *grid);
    void showUrls(const QStringList &urls);
    void showUrlHint();

    ui::common::ElidedLabel *m_content = nullptr;
    ui::common::StatusPill *m_status = nullptr;
    QList<QLabel *> m_values; ///< In the order of their captions.
    QStringList m_urls;
    bool m_isActive = false;
    QListWidget *m_urlList = nullptr;
    QLabel *m_urlHint = nullptr;
    QPushButton *m_copy = nullptr;
    QTimer *m_copiedTimer;
};

} // namespace fileshare
