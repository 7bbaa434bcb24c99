#include "cli/arguments.h"

#include <cstdio>

namespace cli {

Arguments::Arguments(const QString &command, const QString &what, const QString &words)
{
    m_parser.setApplicationDescription(what);
    m_parser.addPositionalArgument(command, what, command);
    m_parser.clearPositionalArguments();
    m_parser.addPositionalArgument(QStringLiteral("words"), QString(),
                                   command + QLatin1Char(' ') + words);
    m_parser.addOptions(
        {{QStringLiteral("json"), QStringLiteral("每行输出一个 JSON 对象")},
         {{QStringLiteral("0"), QStringLiteral("null")},
          QStringLiteral("输出以 NUL 结尾的路径或编号")},
         {{QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("显示帮助")}});
}

bool Arguments::parse(const QStringList &arguments, int leastWords, int *exitCode)
{
    if (!m_parser.parse(arguments)) {
        *exitCode = wrongUsage(m_parser.errorText());
        return false;
    }
    if (m_parser.isSet(QStringLiteral("help"))) {
        std::fputs(m_parser.helpText().toLocal8Bit().constData(), stdout);
        *exitCode = Success;
        return false;
    }
    if (words().size() < leastWords) {
        *exitCode = wrongUsage(QStringLiteral("缺少参数；用 --help 查看用法"));
        return false;
    }
    return true;
}

qint64 Arguments::number(const QString &option, qint64 otherwise) const
{
    if (!has(option))
        return otherwise;
    bool ok = false;
    const qint64 number = value(option).toLongLong(&ok);
    return ok && number >= 0 ? number : -1;
}

Format Arguments::format() const
{
    if (m_parser.isSet(QStringLiteral("json")))
        return Format::Json;
    return m_parser.isSet(QStringLiteral("0")) ? Format::Nul : Format::Plain;
}

int wrongUsage(const QString &reason)
{
    std::fprintf(stderr, "morvane-cli: %s\n", reason.toLocal8Bit().constData());
    return WrongUsage;
}

} // namespace cli
