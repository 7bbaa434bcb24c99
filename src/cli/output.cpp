#include "cli/output.h"

#include <QFile>
#include <QJsonDocument>

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace cli {
namespace {

constexpr int mostProgress = 76; ///< Characters that fit any terminal.

void write(FILE *stream, const QByteArray &bytes)
{
    if (std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream) != size_t(bytes.size()))
        std::exit(Failed);
}

} // namespace

Output::Output(Format format)
    : m_format(format)
    , m_outIsTerminal(::isatty(STDOUT_FILENO))
    , m_errIsTerminal(::isatty(STDERR_FILENO))
{}

Output::~Output()
{
    clearProgress();
    std::fflush(stdout);
}

void Output::row(const QJsonObject &object, const QString &name, const QString &line)
{
    clearProgress();
    if (m_format == Format::Json)
        write(stdout, QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n');
    else if (m_format == Format::Plain)
        write(stdout, line.toLocal8Bit() + '\n');
    else if (!name.isEmpty())
        write(stdout, QFile::encodeName(name) + '\0');
    if (m_outIsTerminal)
        std::fflush(stdout);
}

void Output::endGroup()
{
    if (m_format != Format::Json)
        write(stdout, QByteArray(1, m_format == Format::Nul ? '\0' : '\n'));
}

void Output::progress(const QString &text)
{
    if (!m_errIsTerminal)
        return;
    clearProgress();
    write(stderr, text.left(mostProgress).toLocal8Bit());
    std::fflush(stderr);
    m_showsProgress = true;
}

void Output::error(const QString &text)
{
    clearProgress();
    write(stderr, "morvane-cli: " + text.toLocal8Bit() + '\n');
}

void Output::flush()
{
    std::fflush(stdout);
}

void Output::clearProgress()
{
    if (m_showsProgress)
        write(stderr, QByteArrayLiteral("\r\033[K"));
    m_showsProgress = false;
}

QString sizeText(qint64 bytes)
{
    static const char *const units[] = {"B", "KB", "MB", "GB", "TB"};
    double value = double(bytes);
    int unit = 0;
    for (; value >= 1024 && unit < 4; ++unit)
        value /= 1024;
    return QStringLiteral("%1 %2")
        .arg(value, 0, 'f', unit == 0 ? 0 : 1)
        .arg(QLatin1String(units[unit]));
}

} // namespace cli
