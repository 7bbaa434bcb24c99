#include "recoveryd/scan/scanrequest.h"

#include <QStringList>

namespace services {
namespace recoveryd {

namespace {

bool fail(QString *error, const QString &message)
{
    if (error)
        *error = message;
    return false;
}

/// The setting's word, its default if it is not given; empty if it is given in another type.
QString setting(const QJsonObject &params, const QString &key, const QString &fallback)
{
    QJsonValue value = params.value(key);
    if (value.isUndefined())
        value = params.value(QLatin1String("advancedSettings")).toObject().value(key);
    return value.isUndefined() ? fallback : value.toString();
}

bool oneOf(const QString &word, const QStringList &words, const QString &key, QString *error)
{
    return words.contains(word) || fail(error, QStringLiteral("参数 %1 无效").arg(key));
}

} // namespace

QString ScanRequest::modeWord() const
{
    return mode == Mode::Deep ? QStringLiteral("deep") : QStringLiteral("quick");
}

bool ScanRequest::wants(const QString &type) const
{
    static const QStringList media = {QStringLiteral("PNG"), QStringLiteral("JPG"),
                                      QStringLiteral("GIF")};
    switch (fileScope) {
    case FileScope::Documents:
        return type != QLatin1String("ZIP") && !media.contains(type);
    case FileScope::Media:
        return media.contains(type);
    default:
        return true;
    }
}

bool parseScanRequest(const QJsonObject &params, ScanRequest *request, QString *error)
{
    const QString device = QStringLiteral("devicePath");
    const QString modeKey = QStringLiteral("scanMode");
    const QString scopeKey = QStringLiteral("fileScope");
    const QString sourceKey = QStringLiteral("deepResultSource");
    const QString spaceKey = QStringLiteral("deepScanScope");

    request->devicePath = params.value(device).toString();
    if (request->devicePath.isEmpty())
        return fail(error, QStringLiteral("参数 %1 无效").arg(device));
    request->fileSystem = params.value(QLatin1String("fileSystem")).toString();

    const QString mode = setting(params, modeKey, QStringLiteral("quick"));
    const QString scope = setting(params, scopeKey, QStringLiteral("all"));
    const QString source = setting(params, sourceKey, QStringLiteral("metadataAndDeep"));
    const QString space = setting(params, spaceKey, QStringLiteral("unallocatedOnly"));
    if (!oneOf(mode, {QStringLiteral("quick"), QStringLiteral("deep")}, modeKey, error) ||
        !oneOf(scope,
               {QStringLiteral("all"), QStringLiteral("documentsOnly"), QStringLiteral("mediaOnly"),
                QStringLiteral("codeAndLogs")},
               scopeKey, error) ||
        !oneOf(source, {QStringLiteral("metadataAndDeep"), QStringLiteral("deepOnly")}, sourceKey,
               error) ||
        !oneOf(space, {QStringLiteral("unallocatedOnly"), QStringLiteral("fullDisk")}, spaceKey,
               error))
        return false;
    // Plain text has no first bytes to know it by.
    if (scope == QLatin1String("codeAndLogs"))
        return fail(error, QStringLiteral("代码与日志没有可识别的文件特征，请选择其他文件范围"));

    request->mode =
        mode == QLatin1String("deep") ? ScanRequest::Mode::Deep : ScanRequest::Mode::Quick;
    request->fileScope = scope == QLatin1String("documentsOnly") ? ScanRequest::FileScope::Documents
                         : scope == QLatin1String("mediaOnly")   ? ScanRequest::FileScope::Media
                                                                 : ScanRequest::FileScope::All;
    request->withMetadata = source == QLatin1String("metadataAndDeep");
    request->isFullDisk =
        request->mode == ScanRequest::Mode::Deep && space == QLatin1String("fullDisk");
    return true;
}

} // namespace recoveryd
} // namespace services
