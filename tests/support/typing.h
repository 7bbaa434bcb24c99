#pragma once

#include <QCoreApplication>
#include <QInputMethodEvent>
#include <QTest>
#include <QWidget>

namespace support {

/// Types into a widget key by key; what no key gives comes as an input method commits it.
inline void typeInto(QWidget *editor, const QString &text)
{
    for (const QChar c : text) {
        if (c.unicode() < 0x80) {
            QTest::keyClick(editor, c.toLatin1());
            continue;
        }
        QInputMethodEvent commit;
        commit.setCommitString(QString(c));
        QCoreApplication::sendEvent(editor, &commit);
    }
}

} // namespace support
