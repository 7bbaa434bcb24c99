#include "ui/pages/filesharedetaildialog/editcard.h"

#include "ui/common/filedroptarget.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/shareparameterform.h"
#include "ui/common/sharepathadder.h"
#include "ui/common/sharepathlist.h"
#include "ui/common/sharewidgets.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"

#include <QPushButton>
#include <QVBoxLayout>

namespace metrics = ui::common::metrics;

namespace fileshare {

EditCard::EditCard(QWidget *parent)
    : QFrame(parent)
{
    setObjectName(QStringLiteral("EditCard"));
    setProperty("card", true);
    auto *heading = new QLabel(tr("编辑共享"), this);
    heading->setObjectName(QStringLiteral("ShareEditHeading"));
    heading->setProperty("textRole", QStringLiteral("dialog-title"));
    m_note = new ui::common::WrapLabel(this);
    m_note->setObjectName(QStringLiteral("ShareEditNote"));
    m_note->setProperty("textRole", QStringLiteral("subtle"));
    auto *halves = new QHBoxLayout;
    halves->setSpacing(metrics::kGroupGap);
    halves->addLayout(buildFiles(), 1);
    halves->addLayout(buildParameters(), 1);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                               metrics::kCardGap);
    column->setSpacing(metrics::kFieldGap);
    column->addWidget(heading);
    column->addWidget(m_note);
    column->addSpacing(metrics::kFieldGap);
    column->addLayout(halves, 1);
}

QBoxLayout *EditCard::buildFiles()
{
    m_list = new SharePathList(this);
    m_list->setObjectName(QStringLiteral("ShareEditList"));
    m_list->setAccessibleName(tr("共享文件"));
    QPushButton *addFiles = namedButton(tr("添加文件"), "ShareEditAddFilesButton", this);
    QPushButton *addFolder = namedButton(tr("添加文件夹"), "ShareEditAddFolderButton", this);
    m_remove = namedButton(tr("移除选中"), "ShareEditRemoveButton", this);
    m_remove->setEnabled(false);
    connect(addFiles, &QPushButton::clicked, this, &EditCard::addFilesRequested);
    connect(addFolder, &QPushButton::clicked, this, &EditCard::addFolderRequested);
    connect(m_remove, &QPushButton::clicked, m_list, &SharePathList::removeSelected);
    connect(m_list, &QListWidget::itemSelectionChanged, this,
            [this] { m_remove->setEnabled(!m_list->selectedItems().isEmpty()); });
    m_adder = new SharePathAdder(this);
    connect(m_adder, &SharePathAdder::accepted, m_list, &SharePathList::addPaths);
    auto *drops = new FileDropTarget(this);
    connect(drops, &FileDropTarget::dropped, m_adder, &SharePathAdder::add);
    connect(drops, &FileDropTarget::hovered, m_list,
            [this](bool isOver) { ui::common::setStyleProperty(m_list, "dropping", isOver); });
    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(metrics::kButtonGap);
    for (QPushButton *button : {addFiles, addFolder, m_remove})
        buttons->addWidget(button);
    buttons->addStretch(1);
    auto *column = new QVBoxLayout;
    column->setSpacing(metrics::kFieldGap);
    column->addWidget(sectionTitle(tr("共享文件"), this));
    column->addLayout(buttons);
    column->addWidget(m_list, 1);
    return column;
}

QBoxLayout *EditCard::buildParameters()
{
    m_form = new ShareParameterForm(this);
    auto *column = new QVBoxLayout;
    column->setSpacing(metrics::kFieldGap);
    column->addWidget(sectionTitle(tr("共享参数"), this));
    column->addWidget(m_form);
    column->addStretch(1);
    return column;
}

void EditCard::load(const ShareSession &session, const QStringList &paths)
{
    m_list->setPaths(paths);
    m_form->clearPassword();
    m_form->setValues(session.accessMode, session.durationMin, session.maxClients);
    const QString kept = tr("保存后链接不变，访问记录会清空。");
    m_note->setText(session.hasPassword ? kept + tr("原密码不会保留，需要时请重新输入。") : kept);
}

void EditCard::addPaths(const QStringList &paths)
{
    m_adder->add(paths);
}

void EditCard::setPort(int port, bool othersRun)
{
    m_form->setPort(port, othersRun ? tr("其他共享正在使用端口 %1，无法更改").arg(port)
                                    : tr("共享端口请在文件分享页顶部统一修改"));
}

} // namespace fileshare
