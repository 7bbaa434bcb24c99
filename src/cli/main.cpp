#include "cli/arguments.h"
#include "cli/commands.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <clocale>
#include <cstdio>

namespace {

struct Command
{
    const char *name;
    int (*run)(const QStringList &arguments);
    const char *what;
};

constexpr Command commands[] = {
    {"index", cli::runIndex, "建立或刷新文件索引"},
    {"search", cli::runSearch, "按文件名查找"},
    {"grep", cli::runGrep, "按文件内容查找"},
    {"space", cli::runSpace, "显示目录占用的空间"},
    {"dupes", cli::runDupes, "查找内容相同的文件"},
    {"share", cli::runShare, "在局域网内共享文件，直到按下 Ctrl+C"},
    {"recover", cli::runRecover, "恢复误删的文件：list、scan、run"},
    {"vault", cli::runVault, "保险箱里的文件：list、restore"},
};

void printUsage(FILE *stream)
{
    std::fputs("用法：morvane-cli 命令 [选项] [参数...]\n\n", stream);
    for (const Command &command : commands)
        std::fprintf(stream, "  %-8s %s\n", command.name, command.what);
    std::fputs(
        "\n每个命令都有 --json、-0 和 --help。退出码：0 成功，1 没有找到，2 用法错误，3 失败。\n",
        stream);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    std::setlocale(LC_CTYPE, "");
    QCoreApplication::setApplicationName(QStringLiteral("morvane-cli"));
    QCoreApplication::setApplicationVersion(QStringLiteral(MORVANE_VERSION));
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false"));
    QStringList arguments = QCoreApplication::arguments();
    const QString name = arguments.value(1);
    if (name == QLatin1String("--help") || name == QLatin1String("-h")) {
        printUsage(stdout);
        return cli::Success;
    }
    if (name == QLatin1String("--version")) {
        std::printf("morvane-cli %s\n", MORVANE_VERSION);
        return cli::Success;
    }
    for (const Command &command : commands) {
        if (name != QLatin1String(command.name))
            continue;
        arguments.removeAt(1);
        return command.run(arguments);
    }
    printUsage(stderr);
    return cli::WrongUsage;
}
