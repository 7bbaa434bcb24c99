#include "ui/common/sharepathchooser.h"

#include <QFileDialog>

namespace fileshare {

SharePathChooser SharePathChooser::dialogs()
{
    SharePathChooser chooser;
    chooser.files = [](QWidget *parent, const QString &title) {
        return QFileDialog::getOpenFileNames(parent, title);
    };
    chooser.folder = [](QWidget *parent, const QString &title) {
        return QFileDialog::getExistingDirectory(parent, title);
    };
    return chooser;
}

QStringList chooseFiles(const SharePathChooser &chooser, QWidget *parent)
{
    return chooser.files(parent, QStringLiteral("选择文件"));
}

QStringList chooseFolder(const SharePathChooser &chooser, QWidget *parent)
{
    const QString folder = chooser.folder(parent, QStringLiteral("选择文件夹"));
    return folder.isEmpty() ? QStringList() : QStringList(folder);
}

} // namespace fileshare
