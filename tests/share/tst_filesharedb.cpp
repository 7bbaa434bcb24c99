#include "share/filesharedb.h"
#include "share/scopedthreadconnection.h"
#include "support/rawdatabase.h"
#include "support/temptree.h"

#include <QFileInfo>
#include <QTest>

#include <atomic>
#include <thread>
#include <vector>

namespace {

ShareSession sampleSession(const char *id, qint64 createdAt = 1000)
{
    ShareSession session;
    session.id = QString::fromLatin1(id);
    session.port = 9801;
    session.durationMin = 5;
    session.maxClients = 3;
    session.createdAt = createdAt;
    session.expiresAt = createdAt + 300000;
    session.status = QStringLiteral("active");
    session.accessMode = QStringLiteral("upload");
    session.totalDownloads = 7;
    session.totalUploads = 2;
    return session;
}

ShareRoot sampleRoot(const char *id, const char *sessionId, const char *name)
{
    return {QString::fromLatin1(id), QString::fromLatin1(sessionId),
            QStringLiteral("/data/") + QString::fromUtf8(name), QString::fromUtf8(name)};
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
    void removalTakesRootsAndLog();
    void transactionsGoAsAWhole();
    void logIsFiltered_data();
    void logIsFiltered();
    void defaultsAreOverlaid();
    void passwordsAreHashed();
    void othersCannotRead();
    void unusableFilesAreToldOf_data();
    void unusableFilesAreToldOf();
    void threadsReadWhileOneWrites();

private:
    TempTree m_tree;
    int m_files = 0;
    QString newPath() { return m_tree.path(QStringLiteral("%1/fileshare.db").arg(++m_files)); }
};

void TestFileShareDb::recordsSurvive()
{
    const QString path = newPath();
    {
        FileShareDb db(path);
        QVERIFY(db.open());
        QVERIFY(db.createSession(sampleSession("old"), QStringLiteral("hash")));
        QVERIFY(db.createSession(sampleSession("new", 2000), QString()));
        QVERIFY(db.addRoot(sampleRoot("r1", "old", "乙")));
        QVERIFY(db.addRoot(sampleRoot("r2", "old", "a")));
        QVERIFY(db.updateSessionPort(QStringLiteral("old"), 9900));
        QVERIFY(db.updateSessionStatus(QStringLiteral("old"), QStringLiteral("stopped")));
        QVERIFY(db.updateSessionTimes(QStringLiteral("old"), 1500, 0));
        QVERIFY(db.updateSessionDownloads(QStringLiteral("old"), 8));
        QVERIFY(db.updateSessionUploads(QStringLiteral("old"), 9));
    }
    FileShareDb db(path);
    QVERIFY(db.open());
    const ShareSession session = db.session(QStringLiteral("old"));
    QCOMPARE(session.port, 9900);
    QVERIFY(session.hasPassword);
    QCOMPARE(session.durationMin, 5);
    QCOMPARE(session.maxClients, 3);
    QCOMPARE(session.createdAt, 1500);
    QCOMPARE(session.expiresAt, 0);
    QCOMPARE(session.status, QStringLiteral("stopped"));
    QCOMPARE(session.accessMode, QStringLiteral("upload"));
    QCOMPARE(session.totalDownloads, 8);
    QCOMPARE(session.totalUploads, 9);
    QCOMPARE(session.rootNames, QStringList({QStringLiteral("乙"), QStringLiteral("a")}));
    QCOMPARE(db.allSessions().first().id, QStringLiteral("new"));
    QCOMPARE(db.sessionsByStatus(QStringLiteral("active")).size(), 1);
    QCOMPARE(db.rootById(QStringLiteral("r1")).localPath, QStringLiteral("/data/乙"));
    QVERIFY(db.session(QStringLiteral("no such")).id.isEmpty());
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
                 .rows(QStringLiteral("SELECT password IS NULL, expires_at IS NULL, access_mode "
                                      "FROM share_sessions")),
             QList<QVariantList>({{1, 1, QStringLiteral("download")}}));
    QVERIFY(!db.session(session.id).hasPassword);
    QCOMPARE(db.session(session.id).expiresAt, 0);
}

void TestFileShareDb::oldFilesAreMigrated()
{
    const QString path = newPath();
    m_tree.dir(QString::number(m_files));
    {
        RawDatabase raw(path);
        raw.rows(QStringLiteral(
            "CREATE TABLE share_sessions (session_id TEXT PRIMARY KEY,port INTEGER NOT NULL,"
            "password TEXT,duration_min INTEGER NOT NULL DEFAULT 60,max_clients INTEGER NOT NULL "
            "DEFAULT 10,created_at INTEGER NOT NULL,expires_at INTEGER,status TEXT NOT NULL "
            "DEFAULT 'active',total_downloads INTEGER NOT NULL DEFAULT 0)"));
        raw.rows(QStringLiteral("INSERT INTO share_sessions VALUES "
                                "('old',9800,NULL,60,10,1,NULL,'stopped',4)"));
    }
    for (int time = 0; time < 2; ++time) { // and a file that has the columns stays as it is
        FileShareDb db(path);
        QString error;
        QVERIFY2(db.open(&error), qPrintable(error));
        const ShareSession session = db.session(QStringLiteral("old"));
        QCOMPARE(session.accessMode, QStringLiteral("download"));
        QCOMPARE(session.totalUploads, 0);
        QCOMPARE(session.totalDownloads, 4);
    }
}

void TestFileShareDb::removalTakesRootsAndLog()
{
    FileShareDb db(newPath());
    QVERIFY(db.open());
    for (const char *id : {"gone", "kept"}) {
        QVERIFY(db.createSession(sampleSession(id), QString()));
        QVERIFY(db.addRoot(sampleRoot(id, id, "x")));
        QVERIFY(db.addAccessLog({0, QString::fromLatin1(id), QStringLiteral("10.0.0.1"),
                                 QStringLiteral("browse"), QString(), 5}));
    }
    QVERIFY(db.removeSession(QStringLiteral("gone")));
    RawDatabase raw(db.dbPath());
    const QStringList kept{QStringLiteral("kept")};
    QCOMPARE(raw.column(QStringLiteral("SELECT session_id FROM share_roots")), kept);
    QCOMPARE(raw.column(QStringLiteral("SELECT session_id FROM share_access_log")), kept);

    QString error;
    QVERIFY(!db.addRoot(sampleRoot("r", "gone", "x"), &error));
    QVERIFY(!error.isEmpty());
}

void TestFileShareDb::transactionsGoAsAWhole()
{
    FileShareDb db(newPath());
    QVERIFY(db.open());
    QVERIFY(db.beginTransaction());
    QVERIFY(db.createSession(sampleSession("s"), QString()));
    QVERIFY(db.threadSafeSession(QStringLiteral("s")).id.isEmpty());
    QVERIFY(db.rollback());
    QVERIFY(db.session(QStringLiteral("s")).id.isEmpty());
    QVERIFY(db.beginTransaction());
    QVERIFY(db.createSession(sampleSession("s"), QString()));
    QVERIFY(db.commitTransaction());
    QVERIFY(!db.threadSafeSession(QStringLiteral("s")).id.isEmpty());
}

void TestFileShareDb::logIsFiltered_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<int>("page");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<int>("count");
    QTest::newRow("all") << "" << 0 << "upload_fail upload_ok browse upload_conflict" << 5;
    QTest::newRow("second page") << "" << 1 << "browse" << 5;
    QTest::newRow("behind the end") << "" << 2 << "" << 5;
    QTest::newRow("uploads") << "upload" << 0 << "upload_fail upload_ok upload_conflict" << 3;
    QTest::newRow("one outcome") << "upload_ok" << 0 << "upload_ok" << 1;
    QTest::newRow("browse") << "browse" << 0 << "browse browse" << 2;
    QTest::newRow("text, not SQL") << "x' OR '1'='1" << 0 << "" << 0;
}

void TestFileShareDb::logIsFiltered()
{
    QFETCH(QString, action);
    QFETCH(int, page);
    QFETCH(int, count);
    FileShareDb db(newPath());
    QVERIFY(db.open());
    QVERIFY(db.createSession(sampleSession("s"), QString()));
    QVERIFY(db.createSession(sampleSession("other"), QString()));
    qint64 time = 0;
    for (const char *done : {"browse", "upload_conflict", "browse", "upload_ok", "upload_fail"})
        QVERIFY(db.addAccessLog({0, QStringLiteral("s"), QStringLiteral("10.0.0.1"),
                                 QString::fromLatin1(done), QStringLiteral("/文件"), ++time}));
    QVERIFY(db.addAccessLog({0, QStringLiteral("other"), QStringLiteral("10.0.0.1"),
                             QStringLiteral("browse"), QString(), ++time}));

    const QList<AccessLogEntry> entries = db.accessLog(QStringLiteral("s"), action, page, 4);
    QTEST(actionsOf(entries).join(QLatin1Char(' ')), "expected");
    QCOMPARE(db.accessLogCount(QStringLiteral("s"), action), count);
    if (!entries.isEmpty())
        QCOMPARE(entries.first().filePath, QStringLiteral("/文件"));
}

void TestFileShareDb::defaultsAreOverlaid()
{
    FileShareDb db(newPath());
    QVERIFY(db.open());
    QCOMPARE(db.loadDefaults().value(QStringLiteral("port")).toInt(), 9800);
    QCOMPARE(db.loadDefaults().value(QStringLiteral("duration_min")).toInt(), 0);
    QCOMPARE(db.loadDefaults().value(QStringLiteral("max_clients")).toInt(), 10);
    QVERIFY(db.saveDefault(QStringLiteral("port"), QStringLiteral("1")));
    QVERIFY(db.saveDefault(QStringLiteral("port"), QStringLiteral("9900")));
    QVERIFY(db.saveDefault(QStringLiteral("other"), QStringLiteral("值")));
    const QVariantMap defaults = db.loadDefaults();
    QCOMPARE(defaults.value(QStringLiteral("port")).toInt(), 9900);
    QCOMPARE(defaults.value(QStringLiteral("other")).toString(), QStringLiteral("值"));
    QCOMPARE(defaults.value(QStringLiteral("access_mode")).toString(), QStringLiteral("download"));
}

void TestFileShareDb::passwordsAreHashed()
{
    QCOMPARE(FileShareDb::hashPassword(QString()), QString());
    QCOMPARE(FileShareDb::hashPassword(QStringLiteral("abc")),
             QStringLiteral("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
    QVERIFY(FileShareDb::hashPassword(QStringLiteral("密码")) !=
            FileShareDb::hashPassword(QStringLiteral("??")));
}

void TestFileShareDb::othersCannotRead()
{
    const QString path = newPath();
    const auto ownersOnly =
        QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser;
    for (int time = 0; time < 2; ++time) {
        FileShareDb db(path);
        QVERIFY(db.open());
        QCOMPARE(QFileInfo(QFileInfo(path).path()).permissions() &
                     ~(ownersOnly | QFile::ExeOwner | QFile::ExeUser),
                 QFile::Permissions());
        for (const char *suffix : {"", "-wal", "-shm"})
            QCOMPARE(QFile::permissions(path + QLatin1String(suffix)), ownersOnly);
        db.close();
        // as an earlier release left it
        QVERIFY(QFile::setPermissions(path, ownersOnly | QFile::ReadGroup | QFile::ReadOther));
    }
}

void TestFileShareDb::unusableFilesAreToldOf_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("damaged") << m_tree.file("damaged.db", QByteArray(5000, 'x'));
    QTest::newRow("a folder") << m_tree.dir("folder.db");
    QTest::newRow("below a file") << m_tree.file("plain") + QStringLiteral("/sub/fileshare.db");
    QTest::newRow("where nothing can be made") << QStringLiteral("/proc/none/fileshare.db");
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
    QVERIFY(db.threadSafeSession(QStringLiteral("s"), &error).id.isEmpty());
    QVERIFY(!error.isEmpty());
    QCOMPARE(db.loadDefaults().value(QStringLiteral("port")).toInt(), 9800);
}

void TestFileShareDb::threadsReadWhileOneWrites()
{
    FileShareDb db(newPath());
    QVERIFY(db.open());
    QVERIFY(db.createSession(sampleSession("s"), QStringLiteral("hash")));
    QVERIFY(db.addRoot(sampleRoot("r", "s", "x")));

    std::atomic<int> failures(0);
    std::atomic<int> running(6);
    std::vector<std::thread> readers;
    for (int i = 0; i < 6; ++i)
        readers.emplace_back([&db, &failures, &running] {
            const QString id = QStringLiteral("s");
            for (int round = 0; round < 40; ++round) {
                QString error;
                const bool ok = db.threadSafeSession(id, &error).rootNames.size() == 1 &&
                                db.threadSafePasswordHash(id, &error) == QLatin1String("hash") &&
                                db.threadSafeRootsForSession(id, &error).size() == 1 &&
                                db.threadSafeRootById(QStringLiteral("r"), &error).sessionId == id;
                if (!ok || !error.isEmpty())
                    ++failures;
            }
            --running;
        });
    int written = 0;
    int refused = 0;
    while (running > 0) {
        if (!db.updateSessionDownloads(QStringLiteral("s"), ++written))
            ++refused;
    }
    for (std::thread &reader : readers)
        reader.join();
    QCOMPARE(refused, 0);
    QCOMPARE(failures.load(), 0);
    QCOMPARE(db.session(QStringLiteral("s")).totalDownloads, written);

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
    QCOMPARE(before.filter(QStringLiteral("scoped")), QStringList());
}

QTEST_GUILESS_MAIN(TestFileShareDb)
#include "tst_filesharedb.moc"
