#pragma once

#include <QString>
#include <QWidget>

class QComboBox;
class QGridLayout;
class QLineEdit;
class QSpinBox;

namespace ui {
namespace common {
class WrapLabel;
}
} // namespace ui

namespace fileshare {

/// The parameters of a share: port (only shown), password, permission, duration, connections.
/// Object names: SharePortSpin, SharePortHint, SharePasswordEdit, ShareAccessModeCombo,
/// ShareDurationCombo, ShareMaxClientsSpin, ShareExposureHint.
class ShareParameterForm : public QWidget
{
    Q_OBJECT

public:
    explicit ShareParameterForm(QWidget *parent = nullptr);

    int port() const;
    QString password() const;
    QString accessMode() const; ///< "download" or "upload".
    int durationMin() const;    ///< Minutes; 0: no limit.
    int maxClients() const;

    void setPort(int port, const QString &hint, const QString &toolTip = QString());
    void clearPassword();
    /// A duration that is not among the choices becomes one.
    void setValues(const QString &accessMode, int durationMin, int maxClients);

private:
    void buildFields();
    void addRow(const QString &caption, QWidget *field);
    void showExposure();

    QGridLayout *m_grid;
    QSpinBox *m_port;
    ui::common::WrapLabel *m_portHint;
    QLineEdit *m_password;
    QComboBox *m_accessMode;
    QComboBox *m_duration;
    QSpinBox *m_maxClients;
    ui::common::WrapLabel *m_exposure;
};

} // namespace fileshare
