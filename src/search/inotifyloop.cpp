#include "search/inotifyloop.h"

#include "core/filename.h"
#include "core/mounttable.h"
#include "core/pathutil.h"
#include "search/extract/indextext.h"
#include "search/filewalker.h"
#include "search/indexrefresh.h"
#include "search/indexroots.h"

#include <QDebug>
#include <QDir>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <sys/inotify.h>
#include <utility>

namespace {

/// Between two looks at the database file while nothing happens.
const int idleMs = 50;
/// After the first event, so that all events of one save are read together.
const int gatherMs = 50;
/// Lets a writer finish before its file is read.
const int settleMs = 300;
/// Waits before the tries to get a text out of a file.
const int tryWaitsMs[] = {0, 300, 600};
/// The kernel's queue is emptied after so many events or directories.
const int drainInterval = 256;
/// Rows that are written together when a directory appears.
const int filesPerBatch = 500;
/// Texts that enter the gram index while nothing else is to be done.
const int gramsPerIdle = 20;

const uint32_t appeared = IN_CREATE | IN_MOVED_TO;
const uint32_t selfGone = IN_DELETE_SELF | IN_MOVE_SELF;
const uint32_t fileGone = IN_MOVED_FROM | IN_DELETE;
const uint32_t fileChanged = IN_ATTRIB | IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE;

} // namespace

InotifyLoop::InotifyLoop(Options options, Reports reports, int wakeFd, const std::atomic_bool &stop)
    : m_options(std::move(options))
    , m_reports(std::move(reports))
    , m_stop(stop)
    , m_db(m_options.dbPath)
    , m_source(wakeFd)
{}

void InotifyLoop::run()
{
    QString error;
    if (!m_db.open(&error) || !m_source.open()) {
        qWarning().noquote() << "[IndexWatcher] cannot start:"
                             << (error.isEmpty() ? qt_error_string() : error);
        m_reports.invalidated();
        return;
    }
    m_db.deferErasing();
    m_source.setMostWatches(m_options.mostWatches);
    for (const QString &root : m_options.roots) {
        const QString path = search::cleanRoot(root);
        if (path.isEmpty())
            continue;
        m_roots.append(path);
        addWatchTree(path, Files::Leave);
    }
    followMounts();
    reportUnfollowed();
    m_sinceCompare.start();
    while (!m_stop && takeEvents()) {
    }
}

/// False if the loop is to end.
bool InotifyLoop::takeEvents()
{
    m_source.waitForEvents(idleMs, gatherMs);
    m_source.drain();
    const QByteArray events = m_source.takeEvents();
    if (!events.isEmpty()) {
        handleEvents(events);
        if (!m_pending.isEmpty())
            processPending();
        reportUnfollowed();
        (void)m_db.eraseRemovedText();
        return true;
    }
    if (m_source.failed())
        return false;
    idle();
    // A rebuild or the user may remove the index underneath.
    if (!m_stop && !QFileInfo::exists(m_db.databasePath())) {
        m_reports.invalidated();
        return false;
    }
    return true;
}

void InotifyLoop::idle()
{
    (void)m_db.eraseRemovedText(); // What a search was reading the last time.
    if (m_source.takeMountChange())
        followMounts();
    if (m_sinceCompare.hasExpired(m_options.compareMs)) {
        compareFolders();
        m_sinceCompare.restart();
    }
    if (m_gramsAreMissing && !m_db.addMissingGrams(gramsPerIdle, &m_gramsAreMissing))
        m_gramsAreMissing = false; // Left to the next build.
    if (!m_pending.isEmpty())
        processPending();
    reportUnfollowed();
}

void InotifyLoop::handleEvents(const QByteArray &events)
{
    int handled = 0;
    for (int at = 0; at < events.size() && !m_stop;) {
        inotify_event event;
        std::memcpy(&event, events.constData() + at, sizeof event);
        at += int(sizeof event);
        handleEvent(event, event.len > 0 ? events.constData() + at : nullptr);
        at += int(event.len);
        if (++handled % drainInterval == 0)
            m_source.drain();
    }
}

void InotifyLoop::handleEvent(const inotify_event &event, const char *name)
{
    if (event.mask & IN_Q_OVERFLOW) {
        // Events were lost; only a rebuild repairs that.
        m_reports.invalidated();
        return;
    }
    QString path = m_source.watchedDirectory(event.wd);
    if (path.isEmpty())
        return;
    if (name) {
        const QString decoded = core::decodedFileName(name);
        if (decoded.isEmpty())
            return;
        if (!path.endsWith(QLatin1Char('/')))
            path += QLatin1Char('/');
        path += decoded;
    }
    if (event.mask & IN_IGNORED)
        m_source.forgetWatch(event.wd);
    else if (event.mask & (IN_ISDIR | selfGone))
        handleDirectory(event.mask, path);
    else if (!shouldSkipPath(path))
        handleFile(event.mask, path);
}

void InotifyLoop::handleDirectory(uint32_t mask, const QString &path)
{
    if (mask & appeared)
        addWatchTree(path, Files::Take);
    // The end of a directory is told to its own watch too, without IN_ISDIR. That is news only
    // where nobody watches its parent: for a root.
    const bool isNews = !(mask & selfGone) || !m_source.isWatched(QFileInfo(path).path());
    if (!(mask & (IN_MOVED_FROM | IN_DELETE | selfGone)) || !isNews)
        return;
    // The kernel ends the watches of deleted directories by itself.
    if (mask & (IN_MOVED_FROM | IN_MOVE_SELF))
        m_source.removeWatchesInside(path);
    m_deep.removeInside(path);
    m_unwatched.removeInside(path);
    const QString below = path + QLatin1Char('/');
    for (auto it = m_pending.begin(); it != m_pending.end();) {
        if (it.key().startsWith(below))
            it = m_pending.erase(it);
        else
            ++it;
    }
    reportChange(path, QStringLiteral("remove-dir"), m_db.removeDirectory(path));
}

void InotifyLoop::handleFile(uint32_t mask, const QString &path)
{
    if (mask & fileGone) {
        m_pending.remove(path);
        reportChange(path, QStringLiteral("remove-file"), m_db.removeFile(path));
        return;
    }
    if (!(mask & fileChanged))
        return;
    const QFileInfo info(path);
    if (!info.isFile())
        return;
    QString error;
    if (!shouldIndexFileName(info.fileName())) {
        if (!m_db.removeFile(path, &error))
            qWarning().noquote() << "[IndexWatcher] cannot remove" << path << ":" << error;
        m_reports.updated(path, QStringLiteral("remove-filtered"), true);
    } else if (!shouldIndexFts(info.fileName())) {
        if (!m_db.upsertFileInfoBatch({info}, &error))
            qWarning().noquote() << "[IndexWatcher] cannot store" << path << ":" << error;
        m_reports.updated(path, QStringLiteral("meta-only"), true);
    } else {
        m_pending.insert(path, info);
    }
}

/// Every file gets its tries with the same waits, but all files wait together: a hundred files
/// without text take a second, not a hundred.
void InotifyLoop::processPending()
{
    QHash<QString, QFileInfo> waiting;
    waiting.swap(m_pending);
    m_source.sleep(settleMs);
    const int lastWaitMs = *std::prev(std::end(tryWaitsMs));
    for (const int waitMs : tryWaitsMs) {
        if (waiting.isEmpty())
            return;
        m_source.sleep(waitMs);
        for (auto it = waiting.begin(); it != waiting.end();) {
            if (m_stop)
                return;
            QFileInfo &info = it.value();
            info.refresh();
            // Of a file that went meanwhile its own event will tell.
            if (info.isFile()) {
                const search::IndexText read =
                    search::readForIndex(it.key(), m_options.maxContentBytes, &m_stop);
                const QString &text = read.text;
                if (m_stop)
                    return;
                if (text.isEmpty() && waitMs != lastWaitMs) {
                    ++it;
                    continue;
                }
                storeText(info, text);
                if (!text.isEmpty() && !m_db.noteCutTexts({it.key()}, read.isCut))
                    qWarning().noquote() << "[IndexWatcher] cannot note the length of" << it.key();
            }
            it = waiting.erase(it);
            m_source.drain();
            // Names come at once, whatever texts still wait.
            handleEvents(m_source.takeEvents());
        }
    }
}

/// A file without text keeps its earlier one, unless there is nothing in it any more.
void InotifyLoop::storeText(const QFileInfo &info, const QString &text)
{
    const QString path = info.filePath();
    bool ok = m_db.upsertFile(info, text);
    if (ok && text.isEmpty() && info.size() == 0)
        ok = m_db.updateFileContentBatch({{info.absoluteFilePath(), QString()}});
    reportChange(path, QStringLiteral("upsert-file"), ok);
}

/// The watch comes before the look at what a directory holds, so nothing is missed in between.
void InotifyLoop::addWatchTree(const QString &dir, Files files)
{
    if (shouldSkipPath(dir) || !QFileInfo(dir).isDir())
        return;
    addFolder(dir, true);
    int seen = 0;
    const auto enters = [&](const QString &name, const QString &path, int depth) {
        if (++seen % drainInterval == 0)
            m_source.drain();
        if (m_options.exclusion.excludesEntry(name, path))
            return false;
        addFolder(path, m_options.maxDepth < 1 || depth <= m_options.maxDepth);
        return true;
    };
    QList<QFileInfo> found;
    FileWalker::FileVisitor takes;
    if (files == Files::Take) {
        takes = [&](const QString &name, const QString &path) {
            if (!m_options.exclusion.excludesEntry(name, path))
                found.append(QFileInfo(path));
            if (found.size() >= filesPerBatch) {
                takeFiles(found);
                found.clear();
            }
            return true;
        };
    }
    FileWalker([this] { return !m_stop; }, enters, takes).walk(dir);
    takeFiles(found);
}

void InotifyLoop::addFolder(const QString &dir, bool watched)
{
    if (!watched)
        m_deep.add(dir);
    else if (!m_source.addWatch(dir))
        m_unwatched.add(dir);
}

/// Their names at once, in one transaction; their texts later. What the index knows already is
/// left alone.
void InotifyLoop::takeFiles(const QList<QFileInfo> &files)
{
    if (files.isEmpty())
        return;
    search::KnownFiles known(m_db.connection());
    known.open(search::textSettings(m_options.maxContentBytes));
    QList<QFileInfo> changed;
    QStringList reported;
    for (const QFileInfo &info : files) {
        const QString path = info.filePath();
        if (!info.isFile() || !shouldIndexFileName(info.fileName()))
            continue;
        const auto old = known.lookUp(path, info);
        const bool wantsText = shouldIndexFts(info.fileName());
        if (!old.isUnchanged)
            changed.append(info);
        if (wantsText && !old.hasText)
            m_pending.insert(path, info);
        else if (!old.isUnchanged)
            reported.append(path);
    }
    if (!m_db.upsertFileInfoBatch(changed)) {
        reportChange(files.first().absolutePath(), QStringLiteral("meta-only"), false);
        return;
    }
    for (const QString &path : qAsConst(reported))
        m_reports.updated(path, QStringLiteral("meta-only"), true);
    m_source.drain();
}

/// Looks at what cannot be watched.
void InotifyLoop::compareFolders()
{
    for (FolderTimes *folders : {&m_deep, &m_unwatched}) {
        const FolderTimes::Changes changes = folders->compare([this] {
            m_source.drain();
            return !m_stop;
        });
        for (const QString &dir : changes.gone)
            reportChange(dir, QStringLiteral("remove-dir"), m_db.removeDirectory(dir));
        for (const QString &dir : changes.changed)
            compareFolder(dir);
    }
}

/// Takes what is new in a directory and removes what is gone.
void InotifyLoop::compareFolder(const QString &dir)
{
    const QFileInfoList entries =
        QDir(dir).entryInfoList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot);
    QList<QFileInfo> files;
    for (const QFileInfo &entry : entries) {
        const QString path = entry.filePath();
        if (m_stop || shouldSkipPath(path))
            continue;
        if (!entry.isDir())
            files.append(entry);
        else if (!entry.isSymLink() && !m_deep.contains(path) && !m_unwatched.contains(path) &&
                 !m_source.isWatched(path))
            addWatchTree(path, Files::Take);
    }
    takeFiles(files);
    const QStringList gone = search::goneFilesOf(m_db.connection(), dir);
    for (const QString &path : gone)
        reportChange(path, QStringLiteral("remove-file"), m_db.removeFile(path));
}

/// A file system that comes brings directories without an event. Rows of one that goes stay: its
/// files are still on it.
void InotifyLoop::followMounts()
{
    QStringList mounts;
    for (const core::Mount &mount : core::readMountTable()) {
        const QString point = QFile::decodeName(mount.mountPoint);
        const auto holds = [&point](const QString &root) {
            return core::isInside(point, root);
        };
        if (std::any_of(m_roots.cbegin(), m_roots.cend(), holds))
            mounts.append(point);
    }
    const bool first = m_mounts.isEmpty() && !m_sinceCompare.isValid();
    QStringList gone = m_mounts;
    for (const QString &point : qAsConst(mounts)) {
        if (!gone.removeOne(point) && !first)
            addWatchTree(point, Files::Take);
    }
    for (const QString &point : qAsConst(gone)) {
        m_source.removeWatchesInside(point);
        m_deep.removeInside(point);
        m_unwatched.removeInside(point);
    }
    for (const QString &root : qAsConst(m_roots)) {
        if (!m_source.isWatched(root) && !m_unwatched.contains(root))
            addWatchTree(root, Files::Take);
    }
    m_mounts = mounts;
}

void InotifyLoop::reportUnfollowed()
{
    if (m_unwatched.size() == m_reportedUnwatched)
        return;
    m_reportedUnwatched = m_unwatched.size();
    m_reports.notFollowed(m_unwatched.outermost());
}

bool InotifyLoop::shouldSkipPath(const QString &path) const
{
    const QString name = path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
    return PathExclusion::isLockFile(name) || m_options.exclusion.excludes(path);
}

bool InotifyLoop::shouldIndexFileName(const QString &fileName) const
{
    return m_options.nameSuffixes.isEmpty() || m_options.nameSuffixes.matches(fileName);
}

bool InotifyLoop::shouldIndexFts(const QString &fileName) const
{
    return m_options.ftsSuffixes.isEmpty() || m_options.ftsSuffixes.matches(fileName);
}

/// Whatever the index could not take in makes it wrong.
void InotifyLoop::reportChange(const QString &path, const QString &action, bool success)
{
    m_reports.updated(path, action, success);
    if (!success)
        m_reports.invalidated();
}
