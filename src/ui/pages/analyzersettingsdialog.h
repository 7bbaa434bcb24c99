#pragma once

#include "ui/common/framelessdialog.h"

#include <QtGlobal>

class QCheckBox;
class QComboBox;
class QGridLayout;
class QSpinBox;

/// Edits what a disk scan looks for. Object names: ThresholdNumber, ThresholdUnit, MaxFilesCombo,
/// FindDuplicatesBox, CompareCombo, DuplicateSizeNumber, DuplicateSizeUnit, AnalyzerSettingsCancel,
/// AnalyzerSettingsStart.
class AnalyzerSettingsDialog : public ui::common::FramelessDialog
{
    Q_OBJECT

public:
    struct Settings
    {
        qint64 largeFileThreshold = 1073741824; ///< Bytes.
        int maxLargeFiles = 500;                ///< 0 for no limit.
        bool findDuplicates = true;
        bool duplicateByHash = true;
        qint64 dupMinSize = 1048576; ///< Bytes.
    };

    explicit AnalyzerSettingsDialog(const Settings &initial, QWidget *parent = nullptr);

    Settings settings() const;

signals:
    /// The dialog is accepted after this.
    void startScanRequested(const AnalyzerSettingsDialog::Settings &settings);

private:
    struct SizeInput
    {
        QSpinBox *number;
        QComboBox *unit;
    };

    QGridLayout *addCard(const QString &title);
    void buildLargeFilesCard();
    void buildDuplicatesCard();
    void buildButtons();
    SizeInput addSizeRow(QGridLayout *grid, const QString &label, const QString &name,
                         const QString &hint);
    QComboBox *addComboRow(QGridLayout *grid, const QString &label, const QString &name,
                           const QString &hint);
    void addHint(QGridLayout *grid, const QString &hint);
    void apply(const Settings &settings);
    void showWhatApplies();
    static void setSize(const SizeInput &input, qint64 bytes);
    static qint64 sizeOf(const SizeInput &input);

    SizeInput m_threshold;
    QComboBox *m_maxFiles = nullptr;
    QCheckBox *m_findDuplicates = nullptr;
    QComboBox *m_compare = nullptr;
    SizeInput m_dupMinSize;
};
