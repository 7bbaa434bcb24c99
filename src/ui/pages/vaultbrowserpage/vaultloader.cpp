#include "ui/pages/vaultbrowserpage/vaultloader.h"

#include "vault/vaultreader.h"

#include <QFutureWatcher>
#include <QtConcurrentRun>

#include <utility>

namespace vaultbrowser {

VaultLoader::~VaultLoader()
{
    end(m_find);
    end(m_load);
}

void VaultLoader::end(const Stop &request)
{
    if (request)
        *request = true;
}

VaultLoader::Stop VaultLoader::begin(Stop *current)
{
    end(*current);
    *current = std::make_shared<std::atomic<bool>>(false);
    return *current;
}

template <typename Work, typename Done>
void VaultLoader::run(const Stop &stop, Work work, Done done)
{
    using Result = decltype(work());
    auto *watcher = new QFutureWatcher<Result>(this);
    connect(watcher, &QFutureWatcher<Result>::finished, this, [watcher, stop, done] {
        watcher->deleteLater();
        if (!*stop)
            done(watcher->result());
    });
    watcher->setFuture(QtConcurrent::run(std::move(work)));
}

void VaultLoader::find(const QString &mountsFile)
{
    run(
        begin(&m_find), [mountsFile] { return vault::findVaultLocations(mountsFile); },
        [this](const QVector<vault::VaultLocation> &locations) { emit found(locations); });
}

void VaultLoader::load(const QString &vaultParentDir)
{
    const Stop stop = begin(&m_load);
    const auto work = [vaultParentDir, stop] {
        return vault::loadVaultFiles(vaultParentDir, [stop] { return stop->load(); });
    };
    run(stop, work,
        [this, vaultParentDir](const QJsonArray &files) { emit loaded(vaultParentDir, files); });
}

} // namespace vaultbrowser
