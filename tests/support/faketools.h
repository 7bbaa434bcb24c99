#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

/// A folder of small shell scripts that stand in for external programs. Every script notes its
/// name and the arguments of each call before it does anything else.
class FakeTools
{
public:
    QString dir() const { return m_dir.path(); }

    /// Writes or replaces one tool. `script` is the body, without the first line.
    [[nodiscard]] bool add(const QString &tool, const QByteArray &script, QString *error);

    /// Puts the folder in front of PATH, for what looks its tools up there. Returns the old PATH.
    QByteArray prependToPath() const;

    /// The calls so far in their order, each as the tool's name and its arguments.
    QList<QStringList> calls() const;

    /// A script that prints these bytes, whatever they are, and ends with this exit code.
    static QByteArray prints(const QByteArray &bytes, int exitCode = 0);

private:
    QTemporaryDir m_dir;
};
