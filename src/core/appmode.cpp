#include "core/appmode.h"

#include <QByteArray>
#include <QDir>
#include <QFile>

#include <optional>
#include <sys/vfs.h>

namespace core {

namespace {

// File systems that only a live medium puts at the root, as statfs(2) names them.
constexpr quint32 squashfsMagic = 0x73717368;
constexpr quint32 overlayfsMagic = 0x794C7630;
constexpr quint32 tmpfsMagic = 0x01021994;

std::optional<AppMode> modeForWord(const QString &word)
{
    if (word == QLatin1String("livecd") || word == QLatin1String("live"))
        return AppMode::livecd;
    if (word == QLatin1String("normal"))
        return AppMode::normal;
    return std::nullopt;
}

std::optional<AppMode> modeFromArguments(const QStringList &arguments)
{
    const QString prefix = QStringLiteral("--mode=");
    for (int i = 0; i < arguments.size(); ++i) {
        const QString argument = arguments.at(i).trimmed().toLower();
        std::optional<AppMode> mode;
        if (argument.startsWith(prefix))
            mode = modeForWord(argument.mid(prefix.size()));
        else if (argument == QLatin1String("--mode") && i + 1 < arguments.size())
            mode = modeForWord(arguments.at(i + 1).trimmed().toLower());
        if (mode)
            return mode;
    }
    return std::nullopt;
}

bool rootIsLiveFileSystem(const QString &rootDirectory)
{
    struct statfs info = {};
    if (statfs(QFile::encodeName(rootDirectory).constData(), &info) != 0)
        return false;
    // The field's width and sign differ between architectures; the magic numbers have 32 bits.
    const auto type = static_cast<quint32>(info.f_type);
    return type == squashfsMagic || type == overlayfsMagic || type == tmpfsMagic;
}

bool bootedLive(const QString &kernelCommandLine)
{
    QFile file(kernelCommandLine);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;
    const QString line = QString::fromUtf8(file.readAll());
    return line.contains(QLatin1String("boot=live"), Qt::CaseInsensitive) ||
           line.contains(QLatin1String("boot=casper"), Qt::CaseInsensitive) ||
           line.contains(QLatin1String("BOOT=casper"));
}

} // namespace

AppMode AppModeDetector::detect(const QStringList &arguments, const BootProbes &probes)
{
    if (const std::optional<AppMode> mode = modeFromArguments(arguments))
        return *mode;
    if (QDir(probes.liveDirectory).exists() || rootIsLiveFileSystem(probes.rootDirectory) ||
        bootedLive(probes.kernelCommandLine))
        return AppMode::livecd;
    return AppMode::normal;
}

QString AppModeDetector::toString(AppMode mode)
{
    return mode == AppMode::livecd ? QStringLiteral("livecd") : QStringLiteral("normal");
}

} // namespace core
