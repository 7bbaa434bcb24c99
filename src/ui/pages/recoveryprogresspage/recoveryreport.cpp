#include "ui/pages/recoveryprogresspage/recoveryreport.h"

#include "core/jsonnumber.h"

#include <QHash>
#include <QJsonArray>
#include <QSaveFile>

using recoveryresult::FileResult;

namespace recoveryprogress {

namespace {

QByteArray field(const QString &text)
{
    static const QString kSpecial = QStringLiteral(",\"\r\n");
    bool needsQuotes = text.startsWith(QLatin1Char(' ')) || text.endsWith(QLatin1Char(' '));
    for (const QChar letter : text)
        needsQuotes = needsQuotes || kSpecial.contains(letter);
    if (!needsQuotes)
        return text.toUtf8();
    QString doubled = text;
    doubled.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return '"' + doubled.toUtf8() + '"';
}

QByteArray line(const QStringList &fields)
{
    QByteArrayList quoted;
    for (const QString &text : fields)
        quoted.append(field(text));
    return quoted.join(',') + "\r\n";
}

} // namespace

QVector<ReportRow> reportRows(const QVector<FileResult> &files, const QJsonObject &taskDetail,
                              bool isRunning)
{
    QHash<QString, QJsonObject> known;
    const QJsonArray statuses = taskDetail.value(QLatin1String("fileStatuses")).toArray();
    for (const QJsonValue &value : statuses) {
        const QJsonObject object = value.toObject();
        known.insert(object.value(QLatin1String("fileId")).toString(), object);
    }
    QVector<ReportRow> rows;
    rows.reserve(files.size());
    for (const FileResult &file : files) {
        const QJsonObject record = known.value(file.fileId);
        FileResult told = FileResult::fromJson(record);
        if (!file.status.isEmpty())
            told.status = file.status;
        if (!file.detail.isEmpty())
            told.detail = file.detail;
        ReportRow row;
        row.name = file.name;
        row.originalPath = record.value(QLatin1String("originalPath")).toString();
        row.outputPath = record.value(QLatin1String("outputPath")).toString();
        row.result = recoveryresult::statusText(told.status, isRunning);
        if (recoveryresult::outcomeOf(told.status) != recoveryresult::Outcome::Pending)
            row.conclusion = recoveryresult::conclusion(told);
        const QJsonValue written = record.value(QLatin1String("writtenBytes"));
        if (written.isDouble())
            row.writtenBytes = QString::number(core::toInt64(written));
        row.sha256 = record.value(QLatin1String("sha256")).toString();
        rows.append(row);
    }
    return rows;
}

QByteArray reportCsv(const QVector<ReportRow> &rows)
{
    QByteArray csv("\xEF\xBB\xBF");
    csv += line({QStringLiteral("文件名"), QStringLiteral("原路径"), QStringLiteral("保存为"),
                 QStringLiteral("结果"), QStringLiteral("说明"), QStringLiteral("字节数"),
                 QStringLiteral("SHA-256")});
    for (const ReportRow &row : rows)
        csv += line({row.name, row.originalPath, row.outputPath, row.result, row.conclusion,
                     row.writtenBytes, row.sha256});
    return csv;
}

QString writeReport(const QString &path, const QByteArray &csv)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(csv) != csv.size() || !file.flush() ||
        !file.commit())
        return file.errorString();
    return QString();
}

} // namespace recoveryprogress
