#pragma once

#include "ui/common/framelessdialog.h"

#include <QPointer>

class FileShareController;

namespace fileshare {
class ShareParameterForm;
}

/// Asks for the parameters of a new share. Starts with those of the last one, without a password.
class FileShareConfirmDialog : public ui::common::FramelessDialog
{
    Q_OBJECT

public:
    explicit FileShareConfirmDialog(FileShareController *controller, QWidget *parent = nullptr);

    int port() const;
    QString password() const;
    QString accessMode() const; ///< "download" or "upload".
    int durationMin() const;    ///< Minutes; 0: no limit.
    int maxClients() const;

    void loadDefaults();

private:
    QPointer<FileShareController> m_controller;
    fileshare::ShareParameterForm *m_form;
};
