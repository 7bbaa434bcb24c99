#include "support/watcherharness.h"

#include <QtTest>

namespace testsupport {

int watchCount()
{
    int count = 0;
    const QDir descriptors(QStringLiteral("/proc/self/fdinfo"));
    for (const QString &name : descriptors.entryList(QDir::Files)) {
        QFile file(descriptors.filePath(name));
        if (file.open(QIODevice::ReadOnly))
            count += file.readAll().count("inotify wd:");
    }
    return count;
}

/// The fake tool writes down each run. It hangs, waits for a file called "go", or needs three runs
/// before it gives text, by the name of the document.
void WatcherHarness::initTestCase()
{
    m_tools.script("pdftotext",
                   R"sh(dir=$(dirname "$0"); doc=$(basename "$4")
echo "$doc" >> "$dir/runs"
case "$doc" in
hang*) exec sleep 600 ;;
gate*) while [ ! -e "$dir/go" ]; do sleep 0.05; done ;;
third*) [ "$(grep -cx "$doc" "$dir/runs")" = 3 ] || exit 0 ;;
esac
grep -qx none "$4" || cat "$4"
)sh");
    qputenv("PATH", QFile::encodeName(m_tools.path()) + ':' + qgetenv("PATH"));
}

void WatcherHarness::init()
{
    m_tools.file("runs", QByteArray());
    m_ftsExtensions = QStringList{QStringLiteral("txt"), QStringLiteral("pdf")};
    m_tree.reset(new TempTree);
    m_tree->dir("r");
    m_tree->dir("out");
    m_dbPath = at("index.db");
    m_watcher.reset(new IndexWatcher(m_dbPath));
    m_updates.clear();
    m_invalidated = 0;
    connect(m_watcher.data(), &IndexWatcher::indexIncrementalUpdated, this,
            [this](const QString &path, const QString &action, bool success) {
                m_updates.append({path, action, success});
            });
    connect(m_watcher.data(), &IndexWatcher::indexInvalidated, this, [this] { ++m_invalidated; });
}

void WatcherHarness::cleanup()
{
    m_watcher.reset();
}

/// Returns once as many directories are watched as there should be.
void WatcherHarness::startWatcher(int watches, const QStringList &excludeDirs, int maxDepth,
                                  const QStringList &nameExtensions)
{
    m_watcher->setRoots({QString(), QStringLiteral(" ") + at("r/")});
    m_watcher->setIndexOptions(excludeDirs, nameExtensions, m_ftsExtensions, 16384, maxDepth);
    m_watcher->start();
    QTRY_COMPARE_WITH_TIMEOUT(watchCount(), watches, slowMs);
}

int WatcherHarness::countOf(const TreePath &relative, const QString &action, bool success) const
{
    return int(std::count_if(m_updates.begin(), m_updates.end(), [&](const Update &update) {
        return update.path == at(relative) && update.action == action && update.success == success;
    }));
}

/// Returns once all that happened before has been dealt with. Events are handled in order, but a
/// text is taken only after the events that were read together with it: hence two probes.
void WatcherHarness::settle()
{
    for (int i = 0; i < 2; ++i) {
        const QString probe = QStringLiteral("r/probe%1.bin").arg(++m_settled);
        m_tree->file(probe);
        QTRY_VERIFY_WITH_TIMEOUT(countOf(probe, metaOnly) > 0, slowMs);
    }
}

int WatcherHarness::toolRuns(const TreePath &name) const
{
    QFile file(m_tools.path("runs"));
    return file.open(QIODevice::ReadOnly) ? file.readAll().count(name.relative.toUtf8() + '\n')
                                          : -1;
}

/// The files that have rows, without those that only probe.
QStringList WatcherHarness::indexed() const
{
    QStringList files;
    for (const QString &path : rows().keys()) {
        if (!path.contains(QLatin1String("/probe")))
            files.append(path.mid(m_tree->path().size() + 1));
    }
    return files;
}

} // namespace testsupport
