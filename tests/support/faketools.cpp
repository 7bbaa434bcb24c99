#include "support/faketools.h"

#include <QDir>
#include <QFile>

bool FakeTools::add(const QString &tool, const QByteArray &script, QString *error)
{
    QFile file(QDir(dir()).filePath(tool));
    // One write a call, so that calls at the same time do not mix. A call ends with an empty
    // record.
    const QByteArray notes =
        "#!/bin/sh\nprintf '%s\\0' \"${0##*/}\" \"$@\" '' >>\"${0%/*}/calls\"\n";
    const auto mode = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;
    if (file.open(QIODevice::WriteOnly) && file.write(notes + script + '\n') > 0 && file.flush() &&
        file.setPermissions(mode))
        return true;
    *error = QStringLiteral("%1: %2").arg(file.fileName(), file.errorString());
    return false;
}

QByteArray FakeTools::prependToPath() const
{
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", QFile::encodeName(dir()) + ':' + path);
    return path;
}

QList<QStringList> FakeTools::calls() const
{
    QFile file(QDir(dir()).filePath(QStringLiteral("calls")));
    QList<QStringList> calls;
    if (!file.open(QIODevice::ReadOnly))
        return calls;
    QStringList call;
    for (const QByteArray &record : file.readAll().split('\0')) {
        if (!record.isEmpty()) {
            call.append(QString::fromUtf8(record));
        } else if (!call.isEmpty()) {
            calls.append(call);
            call.clear();
        }
    }
    return calls;
}

QByteArray FakeTools::prints(const QByteArray &bytes, int exitCode)
{
    QByteArray octal;
    for (const char c : bytes)
        octal += "\\0" + QByteArray::number(static_cast<uchar>(c), 8).rightJustified(3, '0');
    return "printf '%b' '" + octal + "'\nexit " + QByteArray::number(exitCode);
}
