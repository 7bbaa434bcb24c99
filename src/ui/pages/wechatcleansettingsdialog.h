#pragma once

#include "ui/common/framelessdialog.h"

class QComboBox;
class QSpinBox;

/// The one setting of the WeChat cleaner. Object names: WechatMinSizeSpin, WechatMinSizeUnit,
/// WechatSettingsSave, WechatSettingsCancel.
class WechatCleanSettingsDialog : public ui::common::FramelessDialog
{
    Q_OBJECT

public:
    struct Settings
    {
        qint64 minSize = 1048576; ///< Bytes; smaller files are not compared.
    };

    explicit WechatCleanSettingsDialog(QWidget *parent = nullptr);

    Settings settings() const;
    /// Shown in whole units: KB below 1 MB, MB below 1 GB, else GB.
    void setSettings(const Settings &settings);

private:
    QWidget *buildSection();

    QSpinBox *m_value = nullptr;
    QComboBox *m_unit = nullptr;
};
