#include "search/searchindexdb.h"
#include "support/privatemounts.h"
#include "support/rawdatabase.h"
#include "support/temptree.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QtTest>

#include <functional>
#include <sys/stat.h>

namespace {

constexpr uid_t user = 4711;
constexpr gid_t group = 4712;

/// A word of the text that goes. The full text index may leave out its first letters, where it
/// shares them with the word before.
const QString marker = QStringLiteral("zqxvkjwmarkerqpzt");
const QByteArray markerTail = QByteArrayLiteral("vkjwmarkerqpzt");

QString s(const char *text)
{
    return QString::fromUtf8(text);
}

bool privateMounts = false;

} // namespace

/// Who can read the index, and what is left of texts that were taken out of it.
class TestIndexPrivacy : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void onlyTheOwnerReads();
    void belongsToTheOwnerOfTheFolder();
    void removedTextLeavesNoBytes_data();
    void removedTextLeavesNoBytes();
    void erasingWaitsForReadersOnly();
    void compactingErasesWhatEarlierVersionsLeft();
    void equalTextWritesNothing();
    void textBehindANulIsFound();
    void readOnlyMediumCanBeSearched();

private:
    QStringList files() const;
    int markers() const;
    void fill(SearchIndexDB *index) const;

    QScopedPointer<TempTree> m_tree;
    QString m_path;
};

void TestIndexPrivacy::init()
{
    m_tree.reset(new TempTree);
    m_path = m_tree->path("state/index ?#%墨.db");
    m_tree->dir("state");
}

void TestIndexPrivacy::cleanup()
{
    ::umask(022);
    QCOMPARE(QSqlDatabase::connectionNames(), QStringList());
}

/// The database and its log files, as far as they exist.
QStringList TestIndexPrivacy::files() const
{
    QStringList existing;
    for (const char *suffix : {"", "-wal", "-shm"}) {
        if (QFileInfo::exists(m_path + QLatin1String(suffix)))
            existing.append(m_path + QLatin1String(suffix));
    }
    return existing;
}

int TestIndexPrivacy::markers() const
{
    int count = 0;
    for (const QString &path : files()) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            qFatal("cannot read %s", qPrintable(path));
        count += file.readAll().toLower().count(markerTail);
    }
    return count;
}

/// One document with the marker, long enough to fill pages of its own, among others.
void TestIndexPrivacy::fill(SearchIndexDB *index) const
{
    QVERIFY(index->upsertFile(QFileInfo(s("/docs/secret.txt")),
                              marker + QLatin1Char(' ') + s("words of it ").repeated(900)));
    for (int i = 0; i < 40; ++i)
        QVERIFY(index->upsertFile(QFileInfo(s("/docs/%1.txt").arg(i)),
                                  s("other words %1 zq%1").arg(i).repeated(20)));
}

void TestIndexPrivacy::onlyTheOwnerReads()
{
    ::umask(0);
    const auto modes = [this] {
        QStringList found;
        for (const QString &path : files()) {
            struct stat info = {};
            ::stat(QFile::encodeName(path).constData(), &info);
            found.append(QString::number(info.st_mode & 07777, 8));
        }
        return found;
    };
    const QStringList expected{s("600"), s("600"), s("600")};
    SearchIndexDB index(m_path);
    fill(&index);
    QCOMPARE(modes(), expected);
    // Those of earlier versions; another connection keeps the log files in place.
    for (const QString &path : files())
        QCOMPARE(::chmod(QFile::encodeName(path).constData(), 0644), 0);
    SearchIndexDB other(m_path);
    QVERIFY(other.open());
    QCOMPARE(modes(), expected);
}

/// On a recovery medium root builds the index in the home of an installed user, who must be able to
/// go on with it.
void TestIndexPrivacy::belongsToTheOwnerOfTheFolder()
{
    if (::geteuid() != 0)
        QSKIP("only root makes files for others");
    QCOMPARE(::chown(QFile::encodeName(m_tree->path("state")).constData(), user, group), 0);
    SearchIndexDB index(m_path);
    fill(&index);
    QCOMPARE(files().size(), 3);
    for (const QString &path : files()) {
        struct stat info = {};
        QCOMPARE(::stat(QFile::encodeName(path).constData(), &info), 0);
        QCOMPARE(info.st_uid, user);
        QCOMPARE(info.st_gid, group);
    }
}

using Change = std::function<bool(SearchIndexDB *)>;
Q_DECLARE_METATYPE(Change)

void TestIndexPrivacy::removedTextLeavesNoBytes_data()
{
    QTest::addColumn<Change>("change");
    const auto row = [](const char *name, const Change &change) {
        QTest::newRow(name) << change;
    };
    row("file removed",
        [](SearchIndexDB *index) { return index->removeFile(s("/docs/secret.txt")); });
    row("folder removed",
        [](SearchIndexDB *index) { return index->removeByPathPrefix(s("/docs")); });
    row("text replaced", [](SearchIndexDB *index) {
        return index->upsertFile(QFileInfo(s("/docs/secret.txt")), s("harmless"));
    });
    row("text taken away", [](SearchIndexDB *index) {
        return index->updateFileContentBatch({{s("/docs/secret.txt"), QString()}});
    });
    row("deferred, then erased", [](SearchIndexDB *index) {
        index->deferErasing();
        return index->removeFile(s("/docs/secret.txt")) && index->eraseRemovedText();
    });
    row("deferred, then compacted", [](SearchIndexDB *index) {
        index->deferErasing();
        return index->removeFile(s("/docs/secret.txt")) && index->vacuum();
    });
    row("deferred, then closed", [](SearchIndexDB *index) {
        index->deferErasing();
        const bool removed = index->removeFile(s("/docs/secret.txt"));
        index->close();
        return removed;
    });
}

void TestIndexPrivacy::removedTextLeavesNoBytes()
{
    QFETCH(Change, change);
    const SearchIndexDB keepsTheLog(m_path);
    SearchIndexDB index(m_path);
    fill(&index);
    QVERIFY(markers() > 0);
    QVERIFY(change(&index));
    QCOMPARE(markers(), 0);
    index.close();
    QCOMPARE(markers(), 0);
}

void TestIndexPrivacy::erasingWaitsForReadersOnly()
{
    SearchIndexDB index(m_path);
    fill(&index);
    RawDatabase raw(m_path);
    {
        QSqlQuery reader(raw.connection());
        QVERIFY(reader.exec(s("SELECT path FROM file_index")) && reader.next());
        QElapsedTimer timer;
        timer.start();
        QVERIFY(index.removeFile(s("/docs/secret.txt")));
        QVERIFY(!index.eraseRemovedText());
        QVERIFY2(timer.elapsed() < 3000, "a reader must not hold up the writer");
        QVERIFY(markers() > 0);
    }
    QVERIFY(index.eraseRemovedText());
    QCOMPARE(markers(), 0);
}

void TestIndexPrivacy::compactingErasesWhatEarlierVersionsLeft()
{
    SearchIndexDB index(m_path);
    fill(&index);
    {
        RawDatabase raw(m_path);
        raw.rows(s("PRAGMA secure_delete = OFF"));
        raw.rows(s("DELETE FROM file_index WHERE path = '/docs/secret.txt'"));
    }
    QVERIFY(markers() > 0);
    QVERIFY(index.vacuum());
    QCOMPARE(markers(), 0);
}

void TestIndexPrivacy::equalTextWritesNothing()
{
    SearchIndexDB index(m_path);
    QMap<QString, QString> texts{{s("/a"), s("text of a")},
                                 {s("/b"), s("before") + QChar(QChar::Null)},
                                 {s("/c"), QString()}};
    QVERIFY(
        index.upsertFileInfoBatch({QFileInfo(s("/a")), QFileInfo(s("/b")), QFileInfo(s("/c"))}));
    QVERIFY(index.updateFileContentBatch(texts));
    RawDatabase raw(m_path);
    const auto version = [&raw] {
        return raw.column(s("PRAGMA data_version"));
    };
    const QStringList before = version();
    texts.insert(s("/not there"), s("nobody's"));
    QVERIFY(index.updateFileContentBatch(texts));
    QCOMPARE(version(), before);
    texts.insert(s("/b"), s("other text"));
    QVERIFY(index.updateFileContentBatch(texts));
    QVERIFY(version() != before);
    QCOMPARE(raw.column(s("SELECT content FROM file_index ORDER BY path")),
             (QStringList{s("text of a"), s("other text"), QString()}));
}

void TestIndexPrivacy::textBehindANulIsFound()
{
    SearchIndexDB index(m_path);
    const QString text = s("before") + QChar(QChar::Null) + s("behind it");
    QVERIFY(index.upsertFile(QFileInfo(s("/a.txt")), text));
    // Found as part of a word only by comparing the text itself.
    QCOMPARE(index.queryByContent(s("ehind"), 9, QString()).size(), 1);
}

/// The disk of an installed system that is mounted read-only.
void TestIndexPrivacy::readOnlyMediumCanBeSearched()
{
    if (!privateMounts)
        QSKIP("mounts of one's own are not allowed here");
    {
        SearchIndexDB index(m_path);
        fill(&index);
    }
    const QString state = m_tree->path("state");
    const testsupport::PrivateMount mount(state, state);
    QVERIFY(mount.isMounted());
    QCOMPARE(::mount(nullptr, QFile::encodeName(state).constData(), nullptr,
                     MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr),
             0);
    QString error;
    SearchIndexDB index(m_path);
    QVERIFY2(index.open(&error), qPrintable(error));
    QCOMPARE(index.queryByName(s("secret"), 9, QString(), &error).size(), 1);
    QCOMPARE(index.queryByContent(marker, 9, QString(), &error).size(), 1);
    QCOMPARE(index.indexStats(&error).value(s("ftsCount")).toInt(), 41);
    QCOMPARE(error, QString());
    QVERIFY(!index.removeFile(s("/docs/secret.txt"), &error));
    QVERIFY2(error.contains(s("readonly")), qPrintable(error));
    QCOMPARE(files().size(), 1);

    SearchIndexDB missing(state + s("/none.db"));
    QVERIFY(!missing.open(&error));
    QVERIFY2(error.contains(s("unable to open")), qPrintable(error));
}

int main(int argc, char *argv[])
{
    privateMounts = testsupport::enterPrivateMounts(); // before there are threads
    QCoreApplication application(argc, argv);
    TestIndexPrivacy test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_indexprivacy.moc"
