#pragma once

#include "ui/common/framelessdialog.h"

class QSpinBox;

namespace fileshare {

/// Asks for the port of all shares; only shows it while shares run.
class SharePortDialog : public ui::common::FramelessDialog
{
    Q_OBJECT

public:
    SharePortDialog(int port, bool canChange, QWidget *parent = nullptr);

    int port() const;

private:
    QSpinBox *m_port;
};

} // namespace fileshare
