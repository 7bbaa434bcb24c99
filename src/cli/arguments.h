#pragma once

#include "cli/output.h"

#include <QCommandLineParser>
#include <QStringList>

namespace cli {

/// The arguments of one command: its options, and the words behind them.
class Arguments
{
public:
    /// `what` describes the command, `words` its words, as "DIR...".
    Arguments(const QString &command, const QString &what, const QString &words);

    /// Options besides --json, -0 and --help, which every command has.
    void add(const QCommandLineOption &option) { m_parser.addOption(option); }
    /// False if the command is not to run: the answer has been printed, and `exitCode` is set.
    [[nodiscard]] bool parse(const QStringList &arguments, int leastWords, int *exitCode);

    bool has(const QString &option) const { return m_parser.isSet(option); }
    QString value(const QString &option) const { return m_parser.value(option); }
    /// The option's number; `otherwise` where it is not given, and -1 where it is no number from 0.
    qint64 number(const QString &option, qint64 otherwise) const;
    QStringList words() const { return m_parser.positionalArguments(); }
    Format format() const;

private:
    QCommandLineParser m_parser;
};

/// The exit code for arguments that make no sense, after the reason has been printed.
int wrongUsage(const QString &reason);

} // namespace cli
