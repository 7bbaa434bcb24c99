#include "ui/pages/fileshareconfirmdialog.h"

#include "share/filesharecontroller.h"
#include "ui/common/shareparameterform.h"
#include "ui/common/wraplabel.h"

#include <QPushButton>
#include <QVBoxLayout>

using fileshare::ShareParameterForm;
using ui::common::WrapLabel;

namespace {

constexpr int kWidth = 480;

} // namespace

FileShareConfirmDialog::FileShareConfirmDialog(FileShareController *controller, QWidget *parent)
    : FramelessDialog(parent)
    , m_controller(controller)
    , m_form(new ShareParameterForm(this))
{
    setObjectName(QStringLiteral("FileShareConfirmDialog"));
    setWindowTitle(tr("共享设置"));
    setContentWidth(kWidth);
    auto *heading = new WrapLabel(tr("配置共享参数后开始共享"), this);
    heading->setObjectName(QStringLiteral("ShareConfirmHeading"));
    heading->setProperty("textRole", QStringLiteral("dialog-title"));
    contentLayout()->addWidget(heading);
    contentLayout()->addWidget(m_form);

    QPushButton *cancel = addButton(tr("取消"));
    cancel->setObjectName(QStringLiteral("ShareConfirmCancel"));
    QPushButton *start = addButton(tr("开始共享"), QStringLiteral("primary"));
    start->setObjectName(QStringLiteral("ShareConfirmStart"));
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(start, &QPushButton::clicked, this, &QDialog::accept);
    loadDefaults();
}

void FileShareConfirmDialog::loadDefaults()
{
    if (!m_controller)
        return;
    const QVariantMap defaults = m_controller->lastUsedDefaults();
    m_form->setPort(m_controller->sharePort(),
                    tr("共享端口在文件分享页统一设置，这里仅展示当前端口。"),
                    tr("共享端口请在文件分享页统一修改"));
    m_form->setValues(defaults.value(QStringLiteral("access_mode")).toString(),
                      defaults.value(QStringLiteral("duration_min")).toInt(),
                      defaults.value(QStringLiteral("max_clients")).toInt());
}

int FileShareConfirmDialog::port() const
{
    return m_form->port();
}

QString FileShareConfirmDialog::password() const
{
    return m_form->password();
}

QString FileShareConfirmDialog::accessMode() const
{
    return m_form->accessMode();
}

int FileShareConfirmDialog::durationMin() const
{
    return m_form->durationMin();
}

int FileShareConfirmDialog::maxClients() const
{
    return m_form->maxClients();
}
