#include "core/controllers/upgrade/upgradestatestore.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>

namespace core {
namespace controllers {
namespace upgrade {

namespace {

// A state is a few kilobytes; whatever is far larger is none.
constexpr qint64 kLargestFile = 4 * 1024 * 1024;

} // namespace

UpgradeStateStore::UpgradeStateStore(const QString &path)
    : m_path(path.isEmpty() ? defaultPath() : path)
{}

UpgradeState UpgradeStateStore::load() const
{
    QFile file(m_path);
    if (!QFileInfo(m_path).isFile() || !file.open(QIODevice::ReadOnly | QIODevice::Text) ||
        file.size() > kLargestFile)
        return UpgradeState();
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll());
    if (!document.isObject())
        return UpgradeState();
    const UpgradeState state = UpgradeState::fromJson(document.object());
    return state.version > UpgradeState::kFormatVersion ? UpgradeState() : state;
}

bool UpgradeStateStore::save(const UpgradeState &state) const
{
    if (!QDir().mkpath(QFileInfo(m_path).absolutePath()))
        return false;
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text))
        return false;
    const QByteArray json = QJsonDocument(state.toJson()).toJson(QJsonDocument::Indented);
    // A full disk takes a part of it, which flush() tells but commit() lets pass.
    return file.write(json) == json.size() && file.flush() && file.commit();
}

QString UpgradeStateStore::defaultPath()
{
    return QDir::homePath() + QStringLiteral("/.config/morvane/upgrade/update_state.json");
}

QString UpgradeStateStore::defaultCacheDir()
{
    return QDir::homePath() + QStringLiteral("/.cache/morvane/upgrade");
}

} // namespace upgrade
} // namespace controllers
} // namespace core
