#include "ui/pages/filesharepage/shareportdialog.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/portspinbox.h"
#include "ui/common/wraplabel.h"

#include <QHBoxLayout>
#include <QPushButton>
#include <QVBoxLayout>

using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace fileshare {

SharePortDialog::SharePortDialog(int port, bool canChange, QWidget *parent)
    : FramelessDialog(parent)
    , m_port(new PortSpinBox(port, this))
{
    setObjectName(QStringLiteral("SharePortDialog"));
    setWindowTitle(tr("共享端口设置"));
    contentLayout()->addWidget(new WrapLabel(tr("所有共享链接都会统一使用这个端口。"), this));

    auto *label = new QLabel(tr("共享端口:"), this);
    label->setBuddy(m_port);
    m_port->setEnabled(canChange);
    auto *hint = new WrapLabel(
        canChange
            ? tr("修改后，后续新建或重新启动的共享都会使用新端口。")
            : tr("当前有共享正在运行，统一使用端口 %1。如需修改，请先停止所有共享。").arg(port),
        this);
    hint->setObjectName(QStringLiteral("SharePortDialogHint"));
    hint->setProperty("textRole", QStringLiteral("subtle"));
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kFieldGap);
    row->addWidget(label);
    row->addWidget(m_port, 1);
    auto *field = new QVBoxLayout;
    field->setSpacing(metrics::kFieldGap);
    field->addLayout(row);
    field->addWidget(hint);
    contentLayout()->addLayout(field);

    QPushButton *cancel = addButton(tr("取消"));
    cancel->setObjectName(QStringLiteral("SharePortCancel"));
    QPushButton *save = addButton(tr("保存"), QStringLiteral("primary"));
    save->setObjectName(QStringLiteral("SharePortSave"));
    save->setEnabled(canChange);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(save, &QPushButton::clicked, this, &QDialog::accept);
}

int SharePortDialog::port() const
{
    return m_port->value();
}

} // namespace fileshare
