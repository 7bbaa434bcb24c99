#include "recoveryd/scan/scanrequest.h"

#include "recoveryd/scan/filetypes.h"

#include <QStringList>

namespace services {
namespace recoveryd {

namespace {

const QString kDevicePath = QStringLiteral("devicePath");
const QString kFileSystem = QStringLiteral("fileSystem");
const QString kScanMode = QStringLiteral("scanMode");
const QString kFileScope = QStringLiteral("fileScope");
const QString kResultSource = QStringLiteral("deepResultSource");
const QString kScanScope = QStringLiteral("deepScanScope");
const QString kWithMetadata = QStringLiteral("metadataAndDeep");
const QString kDeepOnly = QStringLiteral("deepOnly");
const QString kUnallocated = QStringLiteral("unallocatedOnly");
const QString kFullDisk = QStringLiteral("fullDisk");
// In the order of ScanRequest::FileScope.
const QStringList kScopes = {QStringLiteral("all"), QStringLiteral("documentsOnly"),
                             QStringLiteral("mediaOnly"), QStringLiteral("codeAndLogs")};

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
    const FileCategory category = categoryOf(type);
    switch (fileScope) {
    case FileScope::Documents:
        return category == FileCategory::Document;
    case FileScope::Media:
        return category == FileCategory::Media;
    case FileScope::Code:
        // Scripts and logs often have no other suffix, and carved text never has.
        return category == FileCategory::Code ||
               type.compare(QLatin1String("txt"), Qt::CaseInsensitive) == 0;
    case FileScope::All:
        break;
    }
    return true;
}

QJsonObject toJson(const ScanRequest &request)
{
    return {{kDevicePath, request.devicePath},
            {kFileSystem, request.fileSystem},
            {kScanMode, request.modeWord()},
            {kFileScope, kScopes.at(int(request.fileScope))},
            {kResultSource, request.withMetadata ? kWithMetadata : kDeepOnly},
            {kScanScope, request.isFullDisk ? kFullDisk : kUnallocated}};
}

bool parseScanRequest(const QJsonObject &params, ScanRequest *request, QString *error)
{
    request->devicePath = params.value(kDevicePath).toString();
    if (request->devicePath.isEmpty())
        return fail(error, QStringLiteral("参数 %1 无效").arg(kDevicePath));
    request->fileSystem = params.value(kFileSystem).toString();

    const QString mode = setting(params, kScanMode, QStringLiteral("quick"));
    const QString scope = setting(params, kFileScope, kScopes.first());
    const QString source = setting(params, kResultSource, kWithMetadata);
    const QString space = setting(params, kScanScope, kUnallocated);
    if (!oneOf(mode, {QStringLiteral("quick"), QStringLiteral("deep")}, kScanMode, error) ||
        !oneOf(scope, kScopes, kFileScope, error) ||
        !oneOf(source, {kWithMetadata, kDeepOnly}, kResultSource, error) ||
        !oneOf(space, {kUnallocated, kFullDisk}, kScanScope, error))
        return false;

    const bool isDeep = mode == QLatin1String("deep");
    request->mode = isDeep ? ScanRequest::Mode::Deep : ScanRequest::Mode::Quick;
    request->fileScope = ScanRequest::FileScope(kScopes.indexOf(scope));
    request->withMetadata = !isDeep || source == kWithMetadata;
    request->isFullDisk = isDeep && space == kFullDisk;
    return true;
}

} // namespace recoveryd
} // namespace services
