#include "ui/common/utils/scanlog.h"

#include <algorithm>

namespace ui {
namespace common {
namespace utils {

namespace {

constexpr int kSessionChars = 8;
constexpr int kNumberWidth = 4;
constexpr int kRuleWidth = 40;

bool isControl(QChar character)
{
    return character.category() == QChar::Other_Control || character == QChar::LineSeparator ||
           character == QChar::ParagraphSeparator;
}

QString oneLine(const QString &text)
{
    if (std::none_of(text.begin(), text.end(), isControl))
        return text;
    QString line;
    for (const QChar character : text) {
        if (character == QLatin1Char('\n'))
            line += QLatin1String("\\n");
        else if (character == QLatin1Char('\t'))
            line += QLatin1String("\\t");
        else if (isControl(character))
            line += QStringLiteral("\\x%1").arg(character.unicode(), 2, 16, QLatin1Char('0'));
        else
            line += character;
    }
    return line;
}

QString heading(QChar rule, const QString &title)
{
    const QString line = QString(kRuleWidth, rule);
    return line + QLatin1Char('\n') + title + QLatin1Char('\n') + line + QLatin1String("\n\n");
}

QString summary(const ScanLog &log)
{
    const QString rows[][2] = {
        {QStringLiteral("会话 ID:     "), log.sessionId},
        {QStringLiteral("设备:       "), log.device},
        {QStringLiteral("文件系统:   "), log.fileSystem},
        {QStringLiteral("导出时间:   "),
         log.exportedAt.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))},
        {QStringLiteral("已发现文件: "), log.filesFound},
        {QStringLiteral("当前进度:   "), log.progress},
        {QStringLiteral("已用时间:   "), log.elapsed},
    };
    QString text;
    for (const auto &row : rows)
        text += row[0] + oneLine(row[1]) + QLatin1Char('\n');
    return text;
}

QString entryText(int number, const ScanLog::Entry &entry)
{
    // One call with all texts each: a "%1" in a name stays what it is.
    QString text =
        QStringLiteral("[%1] %2\n    路径: %3\n    大小: %4  类型: %5  删除时间: %6\n"
                       "    来源: %7  完整性: %8\n\n")
            .arg(QString::number(number).rightJustified(kNumberWidth), oneLine(entry.name),
                 oneLine(entry.path), oneLine(entry.size), oneLine(entry.type),
                 oneLine(entry.deletionTime), oneLine(entry.source), oneLine(entry.integrityLabel));
    if (!entry.integrityReason.isEmpty())
        text += QStringLiteral("    判断依据: %1\n\n").arg(oneLine(entry.integrityReason));
    return text;
}

} // namespace

QString scanLogFileName(const ScanLog &log)
{
    QString session = oneLine(log.sessionId.left(kSessionChars));
    session.replace(QLatin1Char('/'), QLatin1Char('_'));
    return QStringLiteral("scan_log_%1_%2.txt")
        .arg(session, log.exportedAt.toString(QStringLiteral("yyyyMMdd_HHmmss")));
}

QString scanLogText(const ScanLog &log)
{
    QString text = heading(QLatin1Char('='), QStringLiteral("  墨川归档 扫描日志"));
    text += summary(log);
    text += heading(QLatin1Char('-'), QStringLiteral("  文件列表"));
    int number = 0;
    for (const ScanLog::Entry &entry : log.entries)
        text += entryText(++number, entry);
    return text + QStringLiteral("========== 日志结束 ==========\n");
}

} // namespace utils
} // namespace common
} // namespace ui
