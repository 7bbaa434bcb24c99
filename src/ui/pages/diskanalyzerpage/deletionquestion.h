#pragma once

#include "ui/common/appnoticedialog.h"

namespace diskanalyzer {

enum class DeletionChoice { Keep, Trash, Permanent };

/// Asks whether files go to the trash or are deleted; Enter and the focus stand for neither. Object
/// names of the buttons: NoticeOkBtn for the trash, DeletionPermanentBtn, NoticeCancelBtn.
class DeletionQuestion : public ui::common::AppNoticeDialog
{
    Q_OBJECT

public:
    /// `deleteLabel` stands on the button that deletes without the trash.
    DeletionQuestion(const QString &message, const QString &deleteLabel, QWidget *parent);

    /// Keep, unless a button other than the one to cancel was pressed.
    DeletionChoice choice() const { return m_choice; }

    /// Blocks in a nested event loop. Keep if the parent goes meanwhile.
    static DeletionChoice ask(QWidget *parent, const QString &message, const QString &deleteLabel);

private:
    DeletionChoice m_choice = DeletionChoice::Keep;
};

} // namespace diskanalyzer
