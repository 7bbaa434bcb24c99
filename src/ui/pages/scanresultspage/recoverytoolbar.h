#pragma once

#include <QFrame>

class QHBoxLayout;
class QLabel;
class QLineEdit;
class QPushButton;

namespace ui {
namespace common {
class ElidedLabel;
}
} // namespace ui

namespace scanresults {

/// The bottom of the page: where recovered files go, what is ticked, log export, start of recovery.
class RecoveryToolbar : public QFrame
{
    Q_OBJECT

public:
    explicit RecoveryToolbar(QWidget *parent);

    /// Trimmed.
    QString outputPath() const;
    void setOutputPath(const QString &path);
    void focusOutputPath();
    void showChecked(int count, qint64 bytes, int hidden);
    void setScanRunning(bool running);
    /// While a log is being written the button waits.
    void setExporting(bool exporting);

signals:
    void browseClicked();
    void exportClicked();
    void recoverClicked();

private:
    QHBoxLayout *makeOutputRow();
    QHBoxLayout *makeActionRow();

    QLineEdit *m_output = nullptr;
    QPushButton *m_export = nullptr;
    ui::common::ElidedLabel *m_hint = nullptr;
    QLabel *m_checked = nullptr;
    QPushButton *m_recover = nullptr;
};

} // namespace scanresults
