#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QPointer>
#include <QWidget>

#include <functional>

class QFrame;
class QLineEdit;
class QListView;
class QPushButton;
class QStackedWidget;
class QStandardItemModel;
class QVBoxLayout;

namespace blockforensics {
class SnapshotDetail;
}
namespace core {
namespace controllers {
class ForensicsController;
}
} // namespace core
namespace ui {
namespace common {
class EmptyState;
}
} // namespace ui

/// Debugging tool of the recovery engine: registers the blocks of a file while it is intact and
/// later tells which of them are left. GUI thread only.
class BlockForensicsPage : public QWidget
{
    Q_OBJECT

public:
    /// Asks for a directory; empty when the user cancels.
    using DirectoryChooser = std::function<QString(QWidget *parent, const QString &title)>;

    /// Without a controller the page stays empty.
    explicit BlockForensicsPage(core::controllers::ForensicsController *controller,
                                QWidget *parent = nullptr);

    /// Asks for the snapshots. The selected one stays selected if it is still there.
    void refresh();

    /// For tests: what stands in for the directory dialog.
    void setDirectoryChooser(const DirectoryChooser &chooser) { m_chooseDirectory = chooser; }

private:
    QVBoxLayout *buildHeader();
    QFrame *buildRegistration();
    QFrame *buildList();
    QStackedWidget *buildDetail();
    void wireDetail();
    void wireController();

    void registerFile();
    void onRegisterResult(bool success, const QJsonObject &result, const QString &message);
    void onSnapshotsListed(const QJsonArray &snapshots);
    void onCurrentChanged();
    void select(const QString &snapshotId);
    void onSnapshotLoaded(const QJsonObject &snapshot);
    void verify(const QString &note);
    void onVerifyResult(bool success, const QJsonObject &result, const QString &message);
    void requestVerification(const QString &verificationId);
    void onVerificationLoaded(const QJsonObject &verification);
    void recoverFile();
    void onRecoverFileResult(bool success, const QJsonObject &result, const QString &message);
    void deleteSnapshot();
    void onSnapshotDeleted(bool success);
    void onQueryFailed(const QString &method, const QString &id, const QString &message);

    void showListState(const QString &failure = QString());
    /// Runs `show` from the event loop, since the slots here run while the link reads, and no more
    /// is read while a dialog is open inside them.
    void later(const std::function<void()> &show);

    QPointer<core::controllers::ForensicsController> m_controller;
    DirectoryChooser m_chooseDirectory;
    QString m_selectedId;            ///< Of the snapshot; empty without one.
    QString m_verifyingId;           ///< Snapshot under verification.
    QString m_requestedVerification; ///< Which verification the map is to show.
    bool m_isLoading = false;        ///< The list is on its way.
    bool m_needsReload = false;      ///< It has changed since.
    bool m_isListed = false;         ///< A list has come.

    QLineEdit *m_path = nullptr;
    QPushButton *m_register = nullptr;
    QStandardItemModel *m_snapshots;
    QListView *m_list = nullptr;
    QStackedWidget *m_listViews = nullptr;
    ui::common::EmptyState *m_listState = nullptr;
    QPushButton *m_delete = nullptr;
    QStackedWidget *m_detailViews = nullptr;
    ui::common::EmptyState *m_detailState = nullptr;
    blockforensics::SnapshotDetail *m_detail = nullptr;
};
