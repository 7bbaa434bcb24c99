#pragma once

#include <QElapsedTimer>
#include <QString>
#include <QStringList>
#include <QWidget>

class QPushButton;

namespace ui {
namespace common {
class ElidedLabel;
class WrapLabel;
} // namespace common
} // namespace ui

namespace filesearch {

/// Top of the page: title, status line, statistics, and the two buttons of the index.
class SearchPageHeader : public QWidget
{
    Q_OBJECT

public:
    explicit SearchPageHeader(QWidget *parent = nullptr);

    void setStatus(const QString &text, bool isError = false);
    /// A status that answers what the user did. It stays for a while.
    void setOutcome(const QString &text, bool isError);
    /// What happened without the user; left out while an outcome is to be read.
    void setNews(const QString &text);
    void setStatistics(const QString &text);
    /// Folders whose changes are not seen at once; told behind the statistics, listed in a tip.
    void setUnfollowed(const QStringList &folders);
    /// False while another button of the page is the main one.
    void setBuildIsMain(bool isMain);

signals:
    void settingsRequested();
    void buildRequested();

private:
    void showStatistics();

    QString m_statisticsText;
    QStringList m_unfollowed;
    QElapsedTimer m_sinceOutcome;
    ui::common::WrapLabel *m_status;
    ui::common::ElidedLabel *m_statistics;
    QPushButton *m_build;
};

} // namespace filesearch
