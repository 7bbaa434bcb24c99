#include "vaultd/vaultconfig.h"

#include "vault/vaultrecord.h"
#include "vaultd/failure.h"

#include <QDir>
#include <QJsonArray>

#include <algorithm>
#include <cmath>

namespace services {
namespace vaultd {

namespace {

constexpr int kMaxEntries = 1000;
constexpr int kMaxPath = 4096;
constexpr int kMaxExtension = 32;
constexpr int kMaxDays = 3650;
constexpr double kMaxBytes = 9007199254740992.0; // 2^53, up to where JSON numbers are exact

const QString kDirs = QStringLiteral("protectedDirs");
const QString kExtensions = QStringLiteral("protectedExtensions");
const QString kDays = QStringLiteral("retentionDays");
const QString kMaxSpace = QStringLiteral("maxSpaceBytes");
const QString kEmergency = QStringLiteral("emergencyThresholdBytes");
const QString kSecondNet = QStringLiteral("secondNet");
const QString kExcludedDirs = QStringLiteral("excludedDirs");
const QString kExcludedNames = QStringLiteral("excludedNames");
const QString kCopyLimit = QStringLiteral("copyLimitBytes");
const QStringList kSecondNets{QStringLiteral("auto"), QStringLiteral("always"),
                              QStringLiteral("never")};

bool hasControl(const QString &text)
{
    return std::any_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 0x20; });
}

/// A list of texts, each of which `isFit`, without repetitions.
bool readTexts(const QJsonObject &object, const QString &key, const QString &label,
               bool (*isFit)(const QString &), const QString &rule, QStringList *texts,
               QString *error)
{
    const QJsonValue value = object.value(key);
    if (!value.isArray())
        return fail(error, QStringLiteral("%1（%2）缺失或不是列表").arg(label, key));
    const QJsonArray array = value.toArray();
    if (array.size() > kMaxEntries)
        return fail(error, QStringLiteral("%1（%2）超过 %3 项").arg(label, key).arg(kMaxEntries));
    for (const QJsonValue &entry : array) {
        if (!entry.isString() || !isFit(entry.toString()))
            return fail(error, QStringLiteral("%1（%2）包含无效项“%3”：%4")
                                   .arg(label, key, entry.toString().left(80), rule));
        texts->append(entry.toString());
    }
    texts->removeDuplicates();
    return true;
}

bool readNumber(const QJsonObject &object, const QString &key, const QString &label, double lowest,
                double highest, qint64 *number, QString *error)
{
    const QJsonValue value = object.value(key);
    const double read = value.toDouble();
    if (!value.isDouble() || std::floor(read) != read)
        return fail(error, QStringLiteral("%1（%2）缺失或不是整数").arg(label, key));
    if (read < lowest || read > highest)
        return fail(error, QStringLiteral("%1（%2）须在 %3 到 %4 之间")
                               .arg(label, key)
                               .arg(qint64(lowest))
                               .arg(qint64(highest)));
    *number = qint64(read);
    return true;
}

bool isDirectory(const QString &text)
{
    const QStringList names = text.split(QLatin1Char('/'));
    return text.startsWith(QLatin1Char('/')) && text.size() < kMaxPath && !hasControl(text) &&
           !names.contains(QStringLiteral("..")) &&
           !names.contains(QLatin1String(vault::kVaultDir));
}

bool isExtension(const QString &text)
{
    return !text.isEmpty() && text.size() <= kMaxExtension && !text.startsWith(QLatin1Char('.')) &&
           !text.endsWith(QLatin1Char('.')) && text == text.toLower() &&
           std::none_of(text.begin(), text.end(), [](QChar c) {
               return c.isSpace() || c.unicode() < 0x20 || c == QLatin1Char('/') ||
                      c == QLatin1Char(',') || c == QLatin1Char('*');
           });
}

bool isFolderName(const QString &text)
{
    return !text.isEmpty() && text.size() < 256 && !hasControl(text) &&
           !text.contains(QLatin1Char('/')) && text != QLatin1String(".") &&
           text != QLatin1String("..");
}

/// What clients leave out, and a configuration file may have.
bool readOptional(const QJsonObject &object, VaultConfig *read, QString *error)
{
    const auto readList = [&](const QString &key, const QString &label,
                              bool (*isFit)(const QString &), const QString &rule,
                              QStringList *texts) {
        QStringList given;
        if (!object.contains(key))
            return true;
        if (!readTexts(object, key, label, isFit, rule, &given, error))
            return false;
        *texts = given;
        return true;
    };
    if (!readList(kExcludedDirs, QStringLiteral("排除目录"), isDirectory,
                  QStringLiteral("须为绝对路径，且不含“..”"), &read->excludedDirs) ||
        !readList(kExcludedNames, QStringLiteral("排除的目录名"), isFolderName,
                  QStringLiteral("须为不含“/”的名称"), &read->excludedNames))
        return false;
    if (object.contains(kCopyLimit) && !readNumber(object, kCopyLimit, QStringLiteral("复制上限"),
                                                   0, kMaxBytes, &read->copyLimitBytes, error))
        return false;
    if (!object.contains(kSecondNet))
        return true;
    const int net = kSecondNets.indexOf(object.value(kSecondNet).toString());
    if (net < 0)
        return fail(error, QStringLiteral("第二道防线（%1）须为 %2 之一")
                               .arg(kSecondNet, kSecondNets.join(QStringLiteral("、"))));
    read->secondNet = VaultConfig::SecondNet(net);
    return true;
}

} // namespace

VaultConfig VaultConfig::defaultsFor(const QString &vaultParent)
{
    VaultConfig config;
    config.protectedDirs = QStringList{QDir::cleanPath(QDir(vaultParent).absolutePath())};
    config.protectedExtensions =
        QStringLiteral("doc,docx,pdf,xls,xlsx,ppt,pptx,wps,et,dps,odt,ods,odp,txt,md,ofd,rtf")
            .split(QLatin1Char(','));
    config.excludedDirs =
        QStringList{QDir::cleanPath(QDir(vaultParent).absoluteFilePath(QStringLiteral(".cache")))};
    return config;
}

QJsonObject VaultConfig::toFile() const
{
    QJsonObject object = toJson();
    object.insert(kSecondNet, kSecondNets.at(int(secondNet)));
    object.insert(kExcludedDirs, QJsonArray::fromStringList(excludedDirs));
    object.insert(kExcludedNames, QJsonArray::fromStringList(excludedNames));
    object.insert(kCopyLimit, copyLimitBytes);
    return object;
}

QJsonObject VaultConfig::toJson() const
{
    return {{kDirs, QJsonArray::fromStringList(protectedDirs)},
            {kExtensions, QJsonArray::fromStringList(protectedExtensions)},
            {kDays, retentionDays},
            {kMaxSpace, maxSpaceBytes},
            {kEmergency, emergencyThresholdBytes}};
}

bool parseConfig(const QJsonObject &object, VaultConfig *config, QString *error)
{
    VaultConfig read = *config;
    read.protectedDirs.clear();
    read.protectedExtensions.clear();
    qint64 days = 0;
    if (!readTexts(object, kDirs, QStringLiteral("保护目录"), isDirectory,
                   QStringLiteral("须为保护区之外的绝对路径，且不含“..”"), &read.protectedDirs,
                   error) ||
        !readTexts(object, kExtensions, QStringLiteral("保护类型"), isExtension,
                   QStringLiteral("须为小写扩展名，开头不带点"), &read.protectedExtensions,
                   error) ||
        !readNumber(object, kDays, QStringLiteral("保留天数"), 1, kMaxDays, &days, error) ||
        !readNumber(object, kMaxSpace, QStringLiteral("空间上限"), 0, kMaxBytes,
                    &read.maxSpaceBytes, error) ||
        !readNumber(object, kEmergency, QStringLiteral("紧急释放阈值"), 0, kMaxBytes,
                    &read.emergencyThresholdBytes, error) ||
        !readOptional(object, &read, error))
        return false;
    read.retentionDays = int(days);
    for (QString &dir : read.protectedDirs)
        dir = QDir::cleanPath(dir);
    read.protectedDirs.removeDuplicates();
    *config = read;
    return true;
}

} // namespace vaultd
} // namespace services
