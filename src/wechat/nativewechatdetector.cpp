#include "wechat/nativewechatdetector.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

namespace {

constexpr int kBaseConfidence = 55;
constexpr int kMarkerConfidence = 10;
constexpr int kMaxMarkerConfidence = 40;
constexpr int kMonthConfidence = 15;
constexpr int kOwnMarkerConfidence = 8;
constexpr int kMaxConfidence = 100;

struct NativeRule
{
    QString type;
    QString marker; ///< Folder of received files inside an account.
    QStringList roots;
};

QList<NativeRule> nativeRules(const QString &home)
{
    return {
        {QStringLiteral("wechat"),
         QStringLiteral("msg/file"),
         {home + QStringLiteral("/.local/share/WeChat"), home + QStringLiteral("/.config/WeChat"),
          home + QStringLiteral("/Documents/xwechat_files")}},
        {QStringLiteral("wxwork"),
         QStringLiteral("Cache/File"),
         {home + QStringLiteral("/Documents/WXWork")}}};
}

bool isDirectory(const QString &path)
{
    return QFileInfo(path).isDir();
}

QString absolute(const QString &path)
{
    QString result = QFileInfo(path).absoluteFilePath();
    while (result.size() > 1 && result.endsWith(QLatin1Char('/')))
        result.chop(1);
    return result;
}

QStringList collectNativeMsgFileDirs(const QString &profilePath, const QString &marker)
{
    const QString profile = absolute(profilePath);
    const QString subPath = marker.startsWith(QLatin1Char('/')) ? marker.mid(1) : marker;
    const QString ending = QLatin1Char('/') + subPath;
    const QString files = profile.endsWith(ending) ? profile : profile + ending;
    // System lets broken links and devices count as entries too.
    const QDir::Filters any = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
    if (!isDirectory(files) || QDir(files).entryList(any, QDir::Unsorted).isEmpty())
        return QStringList();
    return {absolute(files)};
}

/// At most one directory.
QStringList collectNativeProfileScanDirs(const QString &profilePath, const QString &marker)
{
    if (!isDirectory(profilePath))
        return QStringList();
    return collectNativeMsgFileDirs(profilePath, marker);
}

/// The nearest folder above a scan directory that is named like an account, up to the profile.
QString detectWxId(const QString &profilePath, const QStringList &scanDirs)
{
    const QString top = absolute(profilePath);
    for (const QString &scanDir : scanDirs) {
        QDir dir(absolute(scanDir));
        for (;;) {
            const QString name = dir.dirName();
            if (name.startsWith(QLatin1String("wxid_")) || name.startsWith(QLatin1String("wx_")) ||
                name.startsWith(QLatin1String("uid_")))
                return name;
            if (dir.absolutePath() == top || dir.isRoot() || !dir.cdUp())
                break;
        }
    }
    return QString();
}

/// "2024-3" or "2024-03".
bool isMonthName(const QString &name)
{
    if ((name.size() != 6 && name.size() != 7) || name.at(4) != QLatin1Char('-'))
        return false;
    bool yearOk = false;
    bool monthOk = false;
    const int year = name.leftRef(4).toInt(&yearOk);
    const int month = name.midRef(5).toInt(&monthOk);
    return yearOk && monthOk && year >= 2000 && year <= 2100 && month >= 1 && month <= 12;
}

bool hasMonthDirectory(const QString &path)
{
    const QStringList names =
        QDir(path).entryList(QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Unsorted);
    for (const QString &name : names) {
        if (isMonthName(name))
            return true;
    }
    return false;
}

int confidenceOf(const QStringList &markers, const QString &marker, const QString &primary)
{
    int confidence =
        kBaseConfidence + qMin(kMaxMarkerConfidence, kMarkerConfidence * markers.size());
    if (!primary.isEmpty() && isDirectory(primary) && hasMonthDirectory(primary))
        confidence += kMonthConfidence;
    else if (markers.contains(marker))
        confidence += kOwnMarkerConfidence;
    return qMin(kMaxConfidence, confidence);
}

WechatProfile buildProfile(const QString &profilePath, const QString &type, const QString &marker,
                           const QStringList &scanDirs)
{
    WechatProfile profile;
    profile.profilePath = absolute(profilePath);
    profile.type = type;
    profile.scanDirs = scanDirs;
    profile.matchedMarkers = WechatDetectorUtils::matchedMarkers(scanDirs);
    if (type == QLatin1String("wechat"))
        profile.wxId = detectWxId(profilePath, scanDirs);
    QString primary;
    for (const QString &dir : scanDirs) {
        if (absolute(dir).endsWith(QLatin1Char('/') + marker))
            primary = dir;
    }
    profile.confidence = confidenceOf(profile.matchedMarkers, marker, primary);
    return profile;
}

QList<WechatProfile> buildProfiles(const QString &root, const QString &type, const QString &marker)
{
    QList<WechatProfile> profiles;
    if (!isDirectory(root))
        return profiles;
    const QDir dir(root);
    const QStringList names = dir.entryList(QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot,
                                            QDir::Name | QDir::IgnoreCase);
    for (const QString &name : names) {
        const QString child = dir.absoluteFilePath(name);
        if (WechatDetectorUtils::isMarkerDir(name))
            continue;
        const QStringList scanDirs = collectNativeProfileScanDirs(child, marker);
        if (!scanDirs.isEmpty())
            profiles.append(buildProfile(child, type, marker, scanDirs));
    }
    if (profiles.isEmpty()) {
        const QStringList scanDirs = collectNativeProfileScanDirs(root, marker);
        if (!scanDirs.isEmpty())
            profiles.append(buildProfile(root, type, marker, scanDirs));
    }
    return profiles;
}

} // namespace

NativeWechatDetector::NativeWechatDetector(const QString &home)
    : m_home(home.isEmpty() ? QDir::homePath() : home)
{}

QList<WechatProfile> NativeWechatDetector::detect() const
{
    QList<WechatProfile> profiles;
    const QList<NativeRule> rules = nativeRules(m_home);
    for (const NativeRule &rule : rules) {
        for (const QString &root : rule.roots)
            profiles.append(buildProfiles(root, rule.type, rule.marker));
    }
    return profiles;
}

QList<WechatProfile> NativeWechatDetector::detectInRoot(const QString &root) const
{
    QList<WechatProfile> profiles;
    const QList<NativeRule> rules = nativeRules(m_home);
    for (const NativeRule &rule : rules)
        profiles.append(buildProfiles(root, rule.type, rule.marker));
    return profiles;
}

QStringList WechatDetectorUtils::matchedMarkers(const QStringList &dirs)
{
    QSet<QString> markers;
    for (const QString &dir : dirs) {
        const QString path = absolute(dir);
        for (const QString &marker : {QStringLiteral("msg/file"), QStringLiteral("Cache/File")}) {
            const QString ending = QLatin1Char('/') + marker;
            if (path.endsWith(ending) || path.contains(ending + QLatin1Char('/')))
                markers.insert(marker);
        }
        markers.insert(path.mid(path.lastIndexOf(QLatin1Char('/')) + 1));
    }
    return markers.values();
}

bool WechatDetectorUtils::isMarkerDir(const QString &name)
{
    static const QSet<QString> names{QStringLiteral("FileStorage"), QStringLiteral("Files"),
                                     QStringLiteral("File"), QStringLiteral("Image"),
                                     QStringLiteral("Video")};
    return names.contains(name);
}
