#include "ui/pages/diskanalyzerpage/deletionquestion.h"

#include <QPointer>
#include <QPushButton>

namespace diskanalyzer {

DeletionQuestion::DeletionQuestion(const QString &message, const QString &deleteLabel,
                                   QWidget *parent)
    : AppNoticeDialog(parent)
{
    setNoticeType(Warning);
    setTitleText(tr("确认删除"));
    setMessageText(message);
    setCancelText(tr("取消"));
    setConfirmText(tr("移到回收站"));
    QPushButton *permanent = addButton(deleteLabel, QStringLiteral("danger"));
    permanent->setObjectName(QStringLiteral("DeletionPermanentBtn"));
    auto *trash = findChild<QPushButton *>(QStringLiteral("NoticeOkBtn"));
    moveButtonToEnd(trash);
    setTabOrder(permanent, trash);
    connect(permanent, &QPushButton::clicked, this, [this] {
        m_choice = DeletionChoice::Permanent;
        accept();
    });
    connect(trash, &QPushButton::clicked, this, [this] { m_choice = DeletionChoice::Trash; });
}

DeletionChoice DeletionQuestion::ask(QWidget *parent, const QString &message,
                                     const QString &deleteLabel)
{
    // On the heap: the parent may be deleted, and the dialog with it, while the loop runs.
    QPointer<DeletionQuestion> dialog(new DeletionQuestion(message, deleteLabel, parent));
    dialog->exec();
    const DeletionChoice choice = dialog ? dialog->choice() : DeletionChoice::Keep;
    delete dialog;
    return choice;
}

} // namespace diskanalyzer
