#pragma once

#include "ui/common/framelessdialog.h"

#include <QJsonObject>
#include <QList>

class QComboBox;

/// Edits the advanced options that go with the start of a scan. All are always editable; the
/// service applies the last two only to deep scans.
class ScanSettingsDialog : public ui::common::FramelessDialog
{
    Q_OBJECT

public:
    /// `initial` as toJson() gave it; unknown and missing values leave the defaults.
    explicit ScanSettingsDialog(const QJsonObject &initial, QWidget *parent = nullptr);

    /// `fileScope`, `deepResultSource` and `deepScanScope`.
    QJsonObject toJson() const;

private:
    QWidget *buildSection();
    void buildButtons();
    void applyInitial(const QJsonObject &initial);
    static void setComboValue(QComboBox *combo, const QString &value);

    QList<QComboBox *> m_combos; ///< In the order of their options.
};
