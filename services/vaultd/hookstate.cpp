#include "vaultd/hookstate.h"

#include <QFile>
#include <QFileInfo>

namespace services {
namespace vaultd {

QString HookState::deployMode(bool isEnabled) const
{
    if (!isEnabled)
        return QString();
    return soFileExists && preloadActive ? QStringLiteral("global") : QStringLiteral("degraded");
}

HookState hookState(const QString &library, const QString &preloadList)
{
    HookState state;
    state.soFileExists = !library.isEmpty() && QFileInfo(library).isFile();
    QFile list(preloadList);
    if (!state.soFileExists || !list.open(QIODevice::ReadOnly))
        return state;
    // Entries are divided by blanks, colons or line ends; "#" starts a comment.
    const QList<QByteArray> lines = list.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const QByteArray text = line.mid(0, line.indexOf('#')).replace(':', ' ').simplified();
        if (text.split(' ').contains(QFile::encodeName(library)))
            state.preloadActive = true;
    }
    return state;
}

} // namespace vaultd
} // namespace services
