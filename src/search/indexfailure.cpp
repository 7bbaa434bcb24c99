#include "search/indexfailure.h"

namespace search {

namespace {

/// SQLite's own texts, which are part of its interface and not translated.
struct Row
{
    const char *sqliteText;
    IndexFailure failure;
};

constexpr Row rows[] = {
    {"database or disk is full", IndexFailure::DiskFull},
    {"attempt to write a readonly database", IndexFailure::ReadOnly},
    {"database disk image is malformed", IndexFailure::Damaged},
    {"malformed database schema", IndexFailure::Damaged},
    {"file is not a database", IndexFailure::Damaged},
    {"vtable constructor failed", IndexFailure::Damaged},
    {"unable to open database file", IndexFailure::NoAccess},
    {"database is locked", IndexFailure::Locked},
    {"disk I/O error", IndexFailure::Device},
};

QString reason(IndexFailure failure)
{
    switch (failure) {
    case IndexFailure::DiskFull:
        return QStringLiteral("磁盘空间不足，请清理后重试");
    case IndexFailure::ReadOnly:
        return QStringLiteral("索引文件所在位置是只读的");
    case IndexFailure::Damaged:
        return QStringLiteral("索引文件已损坏，需要重新构建");
    case IndexFailure::NoAccess:
        return QStringLiteral("无法访问索引文件，请检查所在目录及其权限");
    case IndexFailure::Locked:
        return QStringLiteral("索引文件正被其他程序使用，请稍后重试");
    case IndexFailure::Device:
        return QStringLiteral("磁盘读写出错");
    case IndexFailure::Other:
        break;
    }
    return QString();
}

const Row *rowOf(const QString &driverText)
{
    for (const Row &row : rows) {
        if (driverText.contains(QLatin1String(row.sqliteText)))
            return &row;
    }
    return nullptr;
}

} // namespace

IndexFailure indexFailure(const QString &driverText)
{
    const Row *row = rowOf(driverText);
    return row ? row->failure : IndexFailure::Other;
}

QString indexFailureText(const QString &driverText)
{
    const Row *row = rowOf(driverText);
    return row ? QStringLiteral("%1（%2）")
                     .arg(reason(row->failure), QLatin1String(row->sqliteText))
               : driverText;
}

} // namespace search
