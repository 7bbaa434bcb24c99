#include "share/filesharedb.h"
#include "share/scopedthreadconnection.h"
#include "share/threadconnection.h"
#include "support/rawdatabase.h"
#include "support/temptree.h"

#include <QFileInfo>
#include <QScopeGuard>
#include <QTest>
#include <QTextStream>

#include <atomic>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace {

QString operator""_s(const char *utf8, size_t size)
{
    return QString::fromUtf8(utf8, int(size));
}

ShareSession sampleSession(const char *id, qint64 createdAt = 1000)
{
    ShareSession session;
    session.id = QString::fromLatin1(id);
    session.port = 9801;
    session.durationMin = 5;
    session.maxClients = 3;
    session.createdAt = createdAt;
    session.expiresAt = createdAt + 300000;
    session.status = "active"_s;
    session.accessMode = "upload"_s;
    session.totalDownloads = 7;
    session.totalUploads = 2;
    return session;
}

QString describe(const ShareSession &session)
{
    QString text;
    QTextStream(&text) << session.port << (session.hasPassword ? " true " : " false ")
                       << session.durationMin << ' ' << session.maxClients << ' '
                       << session.createdAt << ' ' << session.expiresAt << ' ' << session.status
                       << ' ' << session.accessMode << ' ' << session.totalDownloads << ' '
                       << session.totalUploads << ' ' << session.rootNames.join(QLatin1Char(','));
    return text;
}

ShareRoot sampleRoot(const char *id, const char *sessionId, const char *name)
{
    return {QString::fromLatin1(id), QString::fromLatin1(sessionId),
            "/data/"_s + QString::fromUtf8(name), QString::fromUtf8(name)};
}

QStringList actionsOf(const QList<AccessLogEntry> &entries)
{
    QStringList actions;
    for (const AccessLogEntry &entry : entries)
        actions.append(entry.action);
    return actions;
}

} // namespace

class TestFileShareDb : public QObject
{
    Q_OBJECT

private slots:
    void recordsSurvive();
    void absentValuesAreNull();
    void oldFilesAreMigrated();
    void logIsFiltered();
    void defaultsAreOverlaid();
    void othersCannotRead_data();
    void othersCannotRead();
    void deletedTextsLeaveTheFile();
    void unusableFilesAreToldOf_data();
    void unusableFilesAreToldOf();
    void threadsReadWhileOneWrites();
    void aThreadKeepsItsConnection();

private:
    TempTree m_tree;
    int m_files = 0;
    QString newPath() { return m_tree.path("%1/fileshare.db"_s.arg(++m_files)); }
};

void TestFileShareDb::recordsSurvive()
{
    const QString path = newPath();
    {
        FileShareDb db(path);
        QVERIFY(db.open());
        QVERIFY(db.createSession(sampleSession("old"), "hash"_s));
        QVERIFY(db.createSession(sampleSession("new", 2000), QString()));
        QVERIFY(db.addRoot(sampleRoot("r1", "old", "乙")));
        QVERIFY(db.addRoot(sampleRoot("r2", "old", "a")));
        QVERIFY(db.updateSessionPort("old"_s, 9900));
        QVERIFY(db.updateSessionStatus("old"_s, "stopped"_s));
        QVERIFY(db.updateSessionTimes("old"_s, 1500, 0));
        QVERIFY(db.updateSessionDownloads("old"_s, 8));
        QVERIFY(db.updateSessionUploads("old"_s, 9));
    }
    FileShareDb db(path);
    QVERIFY(db.open());
    QCOMPARE(describe(db.session("old"_s)), "9900 true 5 3 1500 0 stopped upload 8 9 乙,a"_s);
    QCOMPARE(db.allSessions().first().id, "new"_s);
    QCOMPARE(db.sessionsByStatus("active"_s).size(), 1);
    QCOMPARE(db.rootById("r1"_s).localPath, "/data/乙"_s);
    QVERIFY(db.session("no such"_s).id.isEmpty());
}

void TestFileShareDb::absentValuesAreNull()
{
    FileShareDb db(newPath());
    QVERIFY(db.open());
    ShareSession session = sampleSession("s");
    session.expiresAt = 0;
    session.accessMode.clear();
    QVERIFY(db.createSession(session, FileShareDb::hashPassword(QString())));
    QCOMPARE(RawDatabase(db.dbPath())
                 .rows("SELECT password IS NULL, expires_at IS NULL, access_mode "
                       "FROM share_sessions"_s),
             QList<QVariantList>({{1, 1, "download"_s}}));
    QVERIFY(!db.session(session.id).hasPassword);
    QCOMPARE(FileShareDb::hashPassword("abc"_s),
             "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"_s);
    QCOMPARE(db.session(session.id).expiresAt, 0);
}

void TestFileShareDb::oldFilesAreMigrated()
{
    const QString path = newPath();
    m_tree.dir(QString::number(m_files));
    {
        RawDatabase raw(path);
        raw.rows(
            "CREATE TABLE share_sessions (session_id TEXT PRIMARY KEY,port INTEGER NOT NULL,"
            "password TEXT,duration_min INTEGER NOT NULL DEFAULT 60,max_clients INTEGER NOT NULL "
            "DEFAULT 10,created_at INTEGER NOT NULL,expires_at INTEGER,status TEXT NOT NULL "
            "DEFAULT 'active',total_downloads INTEGER NOT NULL DEFAULT 0)"_s);
        raw.rows("INSERT INTO share_sessions VALUES "
                 "('old',9800,NULL,60,10,1,NULL,'stopped',4)"_s);
    }
    for (int time = 0; time < 2; ++time) { // and a file that has the columns stays as it is
        FileShareDb db(path);
        QString error;
        QVERIFY2(db.open(&error), qPrintable(error));
        const ShareSession session = db.session("old"_s);
        QCOMPARE(session.accessMode, "download"_s);
        QCOMPARE(session.totalUploads, 0);
        QCOMPARE(session.totalDownloads, 4);
    }
}

void TestFileShareDb::logIsFiltered()
{
    FileShareDb db(newPath());
    QVERIFY(db.open());
    qint64 time = 0;
    for (const char *id : {"other", "s"}) {
        QVERIFY(db.createSession(sampleSession(id), QString()));
        for (const char *done : {"browse", "upload_conflict", "browse", "upload_ok", "upload_fail"})
            QVERIFY(db.addAccessLog({0, QString::fromLatin1(id), "10.0.0.1"_s,
                                     QString::fromLatin1(done), "/文件"_s, ++time}));
    }
    const struct
    {
        const char *action;
        int page;
        const char *expected;
        int count;
    } rows[] = {
        {"", 0, "upload_fail upload_ok browse upload_conflict", 5},
        {"", 1, "browse", 5},
        {"", 2, "", 5},
        {"upload", 0, "upload_fail upload_ok upload_conflict", 3},
        {"upload_ok", 0, "upload_ok", 1},
        {"browse", 0, "browse browse", 2},
        {"x' OR '1'='1", 0, "", 0},
    };
    for (const auto &row : rows) {
        const QString action = QString::fromLatin1(row.action);
        QCOMPARE(actionsOf(db.accessLog("s"_s, action, row.page, 4)).join(QLatin1Char(' ')),
                 QString::fromLatin1(row.expected));
        QCOMPARE(db.accessLogCount("s"_s, action), row.count);
    }
    QCOMPARE(db.accessLog("s"_s, QString(), 0, 1).first().filePath, "/文件"_s);
    QVERIFY(db.removeSession("s"_s));
    QCOMPARE(db.accessLogCount("s"_s, QString()), 0);
    QCOMPARE(db.accessLogCount("other"_s, QString()), 5);
}

void TestFileShareDb::defaultsAreOverlaid()
{
    FileShareDb db(newPath());
    QVERIFY(db.open());
    QCOMPARE(db.loadDefaults().value("port"_s).toInt(), 9800);
    QVERIFY(db.saveDefault("port"_s, "1"_s));
    QVERIFY(db.saveDefault("port"_s, "9900"_s));
    QVERIFY(db.saveDefault("other"_s, "值"_s));
    const QVariantMap defaults = db.loadDefaults();
    QCOMPARE(defaults.value("duration_min"_s), QVariant(0));
    QCOMPARE(defaults.value("max_clients"_s), QVariant(10));
    QCOMPARE(defaults.value("port"_s).toInt(), 9900);
    QCOMPARE(defaults.value("other"_s).toString(), "值"_s);
    QCOMPARE(defaults.value("access_mode"_s).toString(), "download"_s);
}

void TestFileShareDb::othersCannotRead_data()
{
    QTest::addColumn<int>("mask");
    QTest::newRow("usual umask") << 022;
    QTest::newRow("no umask") << 0;
}

void TestFileShareDb::othersCannotRead()
{
    QFETCH(int, mask);
    const mode_t oldMask = ::umask(mode_t(mask));
    const auto restoreMask = qScopeGuard([oldMask] { ::umask(oldMask); });
    const QString path = newPath();
    const QString folder = QFileInfo(path).path();
    const auto modeOf = [](const QString &file) {
        struct stat info = {};
        return ::stat(QFile::encodeName(file).constData(), &info) == 0 ? int(info.st_mode & 07777)
                                                                       : -1;
    };
    for (int time = 0; time < 2; ++time) {
        FileShareDb db(path);
        QVERIFY(db.open());
        QCOMPARE(modeOf(folder), 0700);
        for (const char *suffix : {"", "-wal", "-shm"})
            QCOMPARE(modeOf(path + QLatin1String(suffix)), 0600);
        db.close();
        // As an earlier release left them.
        QCOMPARE(::chmod(QFile::encodeName(path).constData(), 0644), 0);
        QCOMPARE(::chmod(QFile::encodeName(folder).constData(), 0755), 0);
    }
}

void TestFileShareDb::deletedTextsLeaveTheFile()
{
    const QString path = newPath();
    const auto filesHold = [&path](const QByteArray &marker) {
        for (const char *suffix : {"", "-wal"}) {
            QFile file(path + QLatin1String(suffix));
            if (file.open(QIODevice::ReadOnly) && file.readAll().contains(marker))
                return true;
        }
        return false;
    };
    FileShareDb db(path);
    QVERIFY(db.open());
    for (const char *id : {"gone", "kept"}) {
        QVERIFY(db.createSession(sampleSession(id), QString()));
        QVERIFY(db.addRoot({QLatin1String(id), QLatin1String(id),
                            "/home/me/path-of-"_s + QLatin1String(id), "name"_s}));
        for (int i = 0; i < 500; ++i)
            QVERIFY(db.addAccessLog({0, QLatin1String(id), "10.0.0.1"_s, "download"_s,
                                     "file-of-"_s + QLatin1String(id), i}));
    }
    QVERIFY(filesHold("path-of-gone") && filesHold("file-of-gone"));
    QVERIFY(db.removeSession("gone"_s));
    db.purgeDeleted();
    QVERIFY(!filesHold("path-of-gone"));
    QVERIFY(!filesHold("file-of-gone"));
    QVERIFY(filesHold("path-of-kept") && filesHold("file-of-kept"));
}

void TestFileShareDb::unusableFilesAreToldOf_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("damaged") << m_tree.file("damaged.db", QByteArray(5000, 'x'));
    QTest::newRow("a folder") << m_tree.dir("folder.db");
    QTest::newRow("below a file") << m_tree.file("plain") + "/sub/fileshare.db"_s;
    QTest::newRow("where nothing can be made") << "/proc/none/fileshare.db"_s;
}

void TestFileShareDb::unusableFilesAreToldOf()
{
    QFETCH(QString, path);
    FileShareDb db(path);
    for (int time = 0; time < 2; ++time) {
        QString error;
        QVERIFY(!db.open(&error));
        QVERIFY(!error.isEmpty());
    }
    QString error;
    QVERIFY(!db.createSession(sampleSession("s"), QString(), &error));
    QVERIFY(!error.isEmpty());
    QVERIFY(!db.beginTransaction(&error));
    error.clear();
    QVERIFY(db.allSessions(&error).isEmpty());
    QVERIFY(!error.isEmpty());
    error.clear();
    QVERIFY(db.threadSafeSession("s"_s, &error).id.isEmpty());
    QVERIFY(!error.isEmpty());
    QCOMPARE(db.loadDefaults().value("port"_s).toInt(), 9800);
}

void TestFileShareDb::threadsReadWhileOneWrites()
{
    FileShareDb db(newPath());
    QVERIFY(db.open());
    QVERIFY(db.createSession(sampleSession("s"), "hash"_s));
    QVERIFY(db.addRoot(sampleRoot("r", "s", "x")));

    std::atomic<int> failures(0);
    std::atomic<int> running(6);
    std::vector<std::thread> readers;
    for (int i = 0; i < 6; ++i)
        readers.emplace_back([&db, &failures, &running] {
            const QString id = "s"_s;
            for (int round = 0; round < 40; ++round) {
                QString error;
                const bool ok = db.threadSafeSession(id, &error).rootNames.size() == 1 &&
                                db.threadSafePasswordHash(id, &error) == QLatin1String("hash") &&
                                db.threadSafeRootsForSession(id, &error).size() == 1 &&
                                db.threadSafeRootById("r"_s, &error).sessionId == id;
                if (!ok || !error.isEmpty())
                    ++failures;
            }
            --running;
        });
    int written = 0;
    int refused = 0;
    while (running > 0) {
        if (!db.updateSessionDownloads("s"_s, ++written))
            ++refused;
    }
    for (std::thread &reader : readers)
        reader.join();
    QCOMPARE(refused, 0);
    QCOMPARE(failures.load(), 0);
    QCOMPARE(db.session("s"_s).totalDownloads, written);

    // Two in one scope have names of their own, and no name stays behind.
    const QStringList before = QSqlDatabase::connectionNames();
    {
        const ScopedThreadConnection first(db.dbPath());
        const ScopedThreadConnection second(db.dbPath());
        QVERIFY(first.isValid() && second.isValid());
        QVERIFY(first.database().connectionName() != second.database().connectionName());
        QCOMPARE(QSqlDatabase::connectionNames().size(), before.size() + 2);
    }
    QCOMPARE(QSqlDatabase::connectionNames().size(), before.size());
    QCOMPARE(before.filter("scoped"_s), QStringList());
}

/// What the thread reads through kept statements is what stands in the file at that moment, and
/// neither a failed reading nor an idle connection stays in anybody's way.
void TestFileShareDb::aThreadKeepsItsConnection()
{
    TempTree tree;
    const QString path = tree.path("a.db");
    const QStringList before = QSqlDatabase::connectionNames();
    QStringList names;
    const auto read = [&names, &path] {
        const ThreadConnection::Use connection(path);
        names.append(connection.database().connectionName());
        return FileShareDb::querySession(connection.database(), "s"_s).totalDownloads;
    };
    std::thread([&] {
        QCOMPARE(read(), 0); // a file without tables
        FileShareDb db(path);
        QVERIFY(db.open() && db.createSession(sampleSession("s"), QString()));
        for (int count : {7, 8, 9}) {
            QVERIFY(db.updateSessionDownloads("s"_s, count));
            QCOMPARE(read(), count);
        }
        QVERIFY(db.removeSession("s"_s));
        db.purgeDeleted();
        QCOMPARE(QFileInfo(path + "-wal"_s).size(), qint64(0));
        QCOMPARE(read(), 0);
        names.removeDuplicates();
        QCOMPARE(names.size(), 1);

        db.close();
        for (const char *suffix : {"", "-wal", "-shm"})
            QFile::remove(path + QLatin1String(suffix));
        FileShareDb other(path);
        QVERIFY(other.open() && other.createSession(sampleSession("s"), QString()));
        QCOMPARE(read(), 7);
    }).join();
    names.removeDuplicates();
    QCOMPARE(names.size(), 2);
    QCOMPARE(QSqlDatabase::connectionNames(), before);
}

QTEST_GUILESS_MAIN(TestFileShareDb)
#include "tst_filesharedb.moc"
