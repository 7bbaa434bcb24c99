#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QWidget>

class QFrame;
class QGridLayout;
class QLineEdit;
class QPushButton;
class QTableView;

namespace ui {
namespace common {
class CellTableModel;
class ElidedLabel;
class WrapLabel;
} // namespace common
} // namespace ui

namespace blockforensics {

class BlockMapPanel;

/// One snapshot: its facts, extents, verifications and the block map of one of them.
class SnapshotDetail : public QWidget
{
    Q_OBJECT

public:
    explicit SnapshotDetail(QWidget *parent = nullptr);

    /// Shows this snapshot; the map and the note start over.
    void setSnapshot(const QJsonObject &snapshot);
    void addVerification(const QJsonObject &verification);
    /// The `blockDetails` of a verification.
    void showBlocks(const QJsonArray &blocks);
    /// What the map waits for or why it stays empty.
    void showMapMessage(const QString &message, bool isError);

    void setVerifying(bool isVerifying);
    void setRecovering(bool isRecovering);

signals:
    void verifyRequested(const QString &note);
    void verificationChosen(const QString &verificationId);
    void recoverRequested();

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    QFrame *buildFacts();
    QFrame *buildExtents();
    QFrame *buildVerifications();
    ui::common::ElidedLabel *addFact(QGridLayout *grid, int row, int column, const QString &caption,
                                     const char *name);
    void fitTables();

    ui::common::CellTableModel *m_extents;
    ui::common::CellTableModel *m_verifications;
    ui::common::WrapLabel *m_path = nullptr;
    ui::common::ElidedLabel *m_device = nullptr;
    ui::common::ElidedLabel *m_inode = nullptr;
    ui::common::ElidedLabel *m_size = nullptr;
    ui::common::ElidedLabel *m_blocks = nullptr;
    ui::common::ElidedLabel *m_hash = nullptr;
    ui::common::ElidedLabel *m_time = nullptr;
    QPushButton *m_recover = nullptr;
    QTableView *m_extentTable = nullptr;
    QTableView *m_verificationTable = nullptr;
    QLineEdit *m_note = nullptr;
    QPushButton *m_verify = nullptr;
    BlockMapPanel *m_map = nullptr;
};

} // namespace blockforensics
