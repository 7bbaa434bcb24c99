#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace cli {

/// What a command ends with.
enum ExitCode {
    Success = 0,
    NothingFound = 1,
    WrongUsage = 2,
    Failed = 3,
    Stopped = 130, ///< As a shell reports a program that an interrupt has ended.
};

enum class Format {
    Plain, ///< For people: one row a line.
    Json,  ///< One object a line.
    Nul,   ///< What a row names, each ended by a NUL.
};

/// Standard output and standard error of a command. A reader that has gone ends the program, as it
/// does with other tools.
class Output
{
public:
    explicit Output(Format format);
    ~Output();

    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    /// `name` is what other programs want of the row, as a path; `line` what people read. A row
    /// that has no name is for people and JSON only.
    void row(const QJsonObject &object, const QString &name, const QString &line);
    void row(const QJsonObject &object, const QString &name) { row(object, name, name); }
    /// Parts groups of rows: an empty line, or an empty name.
    void endGroup();
    /// Replaces the last one; on a terminal only.
    void progress(const QString &text);
    void error(const QString &text);
    /// Before a long wait, so that readers get what there is.
    void flush();

    bool isOnTerminal() const { return m_outIsTerminal; }

private:
    void clearProgress();

    Format m_format;
    bool m_outIsTerminal;
    bool m_errIsTerminal;
    bool m_showsProgress = false;
};

/// "1.5 MB", by 1024.
QString sizeText(qint64 bytes);

} // namespace cli
