#include "ui/common/privatefolders.h"

#include "core/pathutil.h"

#include <QDir>
#include <QFileInfo>

namespace fileshare {

namespace {

constexpr QLatin1Char kSlash('/');

/// Private wherever they are.
const char *const kNames[] = {".ssh", ".gnupg", ".morvane_vault"};
/// Private below a home.
const char *const kInHome[] = {".ssh", ".gnupg", ".config/morvane", ".morvane_vault"};

QString realPath(const QString &path)
{
    const QString canonical = QFileInfo(path).canonicalFilePath();
    return canonical.isEmpty() ? QDir::cleanPath(path) : canonical;
}

} // namespace

PrivateContent privateContentOf(const QString &path, const QString &home)
{
    PrivateContent content;
    content.path = path;
    const QString real = realPath(path);
    const QStringList parts = real.split(kSlash);
    const auto add = [&content](const QString &folder, bool isInside) {
        content.isInside = content.isInside || isInside;
        if (!content.folders.contains(folder))
            content.folders.append(folder);
    };
    for (const char *name : kNames) {
        const QString folder = QLatin1String(name);
        if (parts.contains(folder))
            add(folder, true);
        else if (QFileInfo(real + kSlash + folder).isDir())
            add(folder, false);
    }
    for (const char *name : kInHome) {
        const QString folder = QLatin1String(name);
        const QString place = realPath(home + kSlash + folder);
        if (core::isInside(real, place))
            add(folder, true);
        else if (core::isInside(place, real) && QFileInfo::exists(place))
            add(folder, false);
    }
    return content;
}

QString privateContentText(const QList<PrivateContent> &contents)
{
    QStringList lines;
    bool isInside = false;
    for (const PrivateContent &content : contents) {
        lines.append(
            (content.isInside ? QStringLiteral("%1（属于 %2）") : QStringLiteral("%1（其中有 %2）"))
                .arg(QDir::toNativeSeparators(content.path),
                     content.folders.join(QStringLiteral("、"))));
        isInside = isInside || content.isInside;
    }
    const QString consequence =
        isInside ? QStringLiteral("私密文件夹里的文件会被拿到链接的人读取。")
                 : QStringLiteral("隐藏文件不会列出，也无法通过链接打开；"
                                  "但指向它们的链接文件仍可打开，建议只共享需要的子文件夹。");
    return QStringLiteral("以下项目涉及密钥、密码或本程序的数据：\n") +
           lines.join(QLatin1Char('\n')) + QLatin1Char('\n') + consequence +
           QStringLiteral("\n仍要添加吗？");
}

} // namespace fileshare
