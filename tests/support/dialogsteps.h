#pragma once

#include "support/modaldriver.h"

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStringList>
#include <QTest>

namespace support {

/// Notes title and message of a notice, then presses the button of that object name.
inline ModalDriver::Step presses(const char *button, QStringList *texts)
{
    return [button, texts](QWidget *dialog) {
        *texts << dialog->findChild<QLabel *>(QStringLiteral("NoticeTitle"))->text()
               << dialog->findChild<QLabel *>(QStringLiteral("NoticeMessage"))->text();
        QTest::mouseClick(dialog->findChild<QPushButton *>(QString::fromLatin1(button)),
                          Qt::LeftButton);
    };
}

/// Notes the title of a folder dialog, then types a folder and takes it.
inline ModalDriver::Step choosesFolder(const QString &folder, QStringList *texts)
{
    return [folder, texts](QWidget *dialog) {
        *texts << dialog->windowTitle();
        auto *edit = dialog->findChild<QLineEdit *>(QStringLiteral("fileNameEdit"));
        edit->setText(folder);
        QTest::keyClick(edit, Qt::Key_Return);
    };
}

} // namespace support
