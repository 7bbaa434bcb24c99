#pragma once

#include "share/sharerecords.h"
#include "ui/common/sharepathchooser.h"

#include <QFrame>
#include <QStringList>

class QBoxLayout;
class QLabel;
class QPushButton;

namespace fileshare {

class ShareParameterForm;
class SharePathAdder;
class SharePathList;

/// Edits the files and the parameters of a share. Object names: ShareEditList,
/// ShareEditAddFilesButton, ShareEditAddFolderButton, ShareEditRemoveButton, ShareEditNote, and
/// those of ShareParameterForm.
class EditCard : public QFrame
{
    Q_OBJECT

public:
    explicit EditCard(QWidget *parent = nullptr);

    void load(const ShareSession &session, const QStringList &paths);
    void setPort(int port, bool othersRun);
    /// Asks first about what holds private folders.
    void addPaths(const QStringList &paths);

    SharePathList *list() const { return m_list; }
    ShareParameterForm *form() const { return m_form; }

signals:
    void addFilesRequested();
    void addFolderRequested();

private:
    QBoxLayout *buildFiles();
    QBoxLayout *buildParameters();

    SharePathList *m_list = nullptr;
    SharePathAdder *m_adder = nullptr;
    QPushButton *m_remove = nullptr;
    ShareParameterForm *m_form = nullptr;
    QLabel *m_note = nullptr;
};

} // namespace fileshare
