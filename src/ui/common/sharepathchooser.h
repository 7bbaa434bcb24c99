#pragma once

#include <QString>
#include <QStringList>

#include <functional>

class QWidget;

namespace fileshare {

/// Asks the user for what to share; tests put something else in place of the file dialogs. Both
/// give nothing when the user cancels.
struct SharePathChooser
{
    std::function<QStringList(QWidget *parent, const QString &title)> files;
    std::function<QString(QWidget *parent, const QString &title)> folder;

    static SharePathChooser dialogs();
};

/// The two questions, with their titles.
QStringList chooseFiles(const SharePathChooser &chooser, QWidget *parent);
QStringList chooseFolder(const SharePathChooser &chooser, QWidget *parent);

} // namespace fileshare
