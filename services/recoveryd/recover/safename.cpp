#include "recoveryd/recover/safename.h"

#include <QFile>
#include <QFileInfo>

#include <sys/vfs.h>

namespace services::recoveryd {

namespace {

constexpr int kMaxName = 255;
constexpr int kMaxSuffix = 16;
// With the target's own path this stays below PATH_MAX.
constexpr int kMaxFolderBytes = 3000;

int lengthOf(const QString &text, NameRules rules)
{
    return rules == NameRules::Unix ? text.toUtf8().size() : text.size();
}

bool isReservedCharacter(QChar c)
{
    return c == QLatin1Char('<') || c == QLatin1Char('>') || c == QLatin1Char(':') ||
           c == QLatin1Char('"') || c == QLatin1Char('\\') || c == QLatin1Char('|') ||
           c == QLatin1Char('?') || c == QLatin1Char('*');
}

/// CON, PRN, AUX, NUL, COM1 to COM9 and LPT1 to LPT9, with any suffix.
bool isDeviceName(const QString &name)
{
    const int dot = name.indexOf(QLatin1Char('.'));
    const QString stem = name.left(dot < 0 ? name.size() : dot).trimmed().toUpper();
    static const QStringList names = {QStringLiteral("CON"), QStringLiteral("PRN"),
                                      QStringLiteral("AUX"), QStringLiteral("NUL")};
    const bool isPort =
        stem.size() == 4 &&
        (stem.startsWith(QLatin1String("COM")) || stem.startsWith(QLatin1String("LPT"))) &&
        stem.at(3) >= QLatin1Char('1') && stem.at(3) <= QLatin1Char('9');
    return isPort || names.contains(stem);
}

QString suffixOf(const QString &name)
{
    const int dot = name.lastIndexOf(QLatin1Char('.'));
    return dot > 0 && name.size() - dot <= kMaxSuffix ? name.mid(dot) : QString();
}

/// The stem cut so far that it fits together with `rest`, never within a character.
QString fitted(QString stem, const QString &rest, NameRules rules)
{
    while (!stem.isEmpty() && lengthOf(stem + rest, rules) > kMaxName) {
        stem.chop(1);
        if (!stem.isEmpty() && stem.at(stem.size() - 1).isHighSurrogate())
            stem.chop(1);
    }
    return stem + rest;
}

QString replaced(const QString &name, NameRules rules)
{
    QString safe = name;
    for (QChar &c : safe) {
        const bool isControl = c.unicode() < 0x20 || c.unicode() == 0x7F;
        if (isControl || c == QLatin1Char('/') ||
            (rules == NameRules::Windows && isReservedCharacter(c)))
            c = QLatin1Char('_');
    }
    return safe;
}

} // namespace

NameRules nameRulesAt(const QString &dir)
{
    QString existing = QFileInfo(dir).absoluteFilePath();
    while (!QFileInfo::exists(existing) && existing != QLatin1String("/"))
        existing = QFileInfo(existing).absolutePath();
    struct statfs info = {};
    if (::statfs(QFile::encodeName(existing).constData(), &info) != 0)
        return NameRules::Windows;
    switch (quint32(info.f_type)) {
    case 0xEF53:     // ext2/3/4
    case 0x58465342: // XFS
    case 0x9123683E: // Btrfs
    case 0xF2F52010: // F2FS
    case 0x01021994: // tmpfs
    case 0x794C7630: // overlay
    case 0x6969:     // NFS
    case 0x52654973: // ReiserFS
    case 0x3153464A: // JFS
    case 0x2FC12FC1: // ZFS
    case 0xCA451A4E: // bcachefs
        return NameRules::Unix;
    default:
        return NameRules::Windows;
    }
}

QString safeName(const QString &name, NameRules rules)
{
    QString safe = replaced(name, rules);
    if (rules == NameRules::Windows) {
        if (isDeviceName(safe))
            safe.prepend(QLatin1Char('_'));
        if (safe.endsWith(QLatin1Char('.')) || safe.endsWith(QLatin1Char(' ')))
            safe[safe.size() - 1] = QLatin1Char('_');
    }
    if (safe.isEmpty() || safe == QLatin1String("."))
        safe = QStringLiteral("_");
    if (safe == QLatin1String(".."))
        safe = QStringLiteral("__");
    const QString suffix = suffixOf(safe);
    return fitted(safe.left(safe.size() - suffix.size()), suffix, rules);
}

QString alternativeName(const QString &name, int number, NameRules rules)
{
    if (number <= 0)
        return name;
    const int dot = name.lastIndexOf(QLatin1Char('.'));
    const int stem = dot > 0 ? dot : name.size();
    return fitted(name.left(stem), QStringLiteral(" (%1)%2").arg(number).arg(name.mid(stem)),
                  rules);
}

QStringList safeFolders(const QString &path, NameRules rules)
{
    QStringList folders;
    const QStringList parts = path.split(QLatin1Char('/'));
    for (int i = 0; i < parts.size() - 1; ++i)
        if (!parts.at(i).isEmpty())
            folders.append(safeName(parts.at(i), rules));
    if (folders.join(QLatin1Char('/')).toUtf8().size() > kMaxFolderBytes)
        folders = folders.mid(folders.size() - 1);
    return folders;
}

} // namespace services::recoveryd
