#include "core/privatefile.h"
#include "support/temptree.h"

#include <QFile>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

struct stat statusOf(const QString &path)
{
    struct stat info = {};
    if (::lstat(QFile::encodeName(path).constData(), &info) != 0)
        info.st_mode = 0;
    return info;
}

int modeOf(const QString &path)
{
    return int(statusOf(path).st_mode & 07777);
}

void setMode(const QString &path, mode_t mode)
{
    QCOMPARE(::chmod(QFile::encodeName(path).constData(), mode), 0);
}

} // namespace

class TestPrivateFile : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_tree.reset(new TempTree); }
    void cleanup() { ::umask(022); }
    void modesDoNotDependOnTheUmask();
    void restrictsWhatIsThere();
    void saysWhatCannotBeMade();
    void belongsToTheOwnerOfTheFolder();

private:
    QScopedPointer<TempTree> m_tree;
};

void TestPrivateFile::modesDoNotDependOnTheUmask()
{
    ::umask(0);
    const QString folder = m_tree->path("a/b/c");
    QVERIFY(core::makePrivateDirectory(folder));
    core::makePrivateFile(folder + QStringLiteral("/墨 .db"));
    for (const char *below : {"a", "a/b", "a/b/c"})
        QCOMPARE(modeOf(m_tree->path(below)), 0700);
    QCOMPARE(modeOf(m_tree->path("a/b/c/墨 .db")), 0600);
    core::restrictFile(m_tree->path("a/none"));
    QVERIFY(!QFile::exists(m_tree->path("a/none")));
}

void TestPrivateFile::restrictsWhatIsThere()
{
    const QString folder = m_tree->dir("a/b");
    const QString file = m_tree->file("a/b/f", "content");
    const QString aim = m_tree->file("aim");
    const QString link = m_tree->link("a/b/link", aim);
    setMode(m_tree->path("a"), 0755);
    setMode(folder, 02775);
    setMode(file, 0664);
    setMode(aim, 0644);
    QVERIFY(core::makePrivateDirectory(folder));
    core::makePrivateFile(file);
    core::makePrivateFile(link);
    QCOMPARE(modeOf(m_tree->path("a")), 0755); // the folder itself, not those above it
    QCOMPARE(modeOf(folder), 02700);
    QCOMPARE(modeOf(file), 0600);
    QCOMPARE(modeOf(aim), 0644);
    QFile content(file);
    QVERIFY(content.open(QIODevice::ReadOnly));
    QCOMPARE(content.readAll(), QByteArrayLiteral("content"));

    // A shared folder such as that for temporary files stays one.
    setMode(folder, 01777);
    QVERIFY(core::makePrivateDirectory(folder));
    QCOMPARE(modeOf(folder), 01777);
}

void TestPrivateFile::saysWhatCannotBeMade()
{
    m_tree->file("file");
    QVERIFY(!core::makePrivateDirectory(m_tree->path("file")));
    QVERIFY(!core::makePrivateDirectory(m_tree->path("file/below")));
    QVERIFY(!core::makePrivateDirectory(QString()));
}

/// As on a recovery medium, where root works in the home of an installed user.
void TestPrivateFile::belongsToTheOwnerOfTheFolder()
{
    if (::geteuid() != 0)
        QSKIP("only root makes files for others");
    constexpr uid_t user = 4711;
    constexpr gid_t group = 4712;
    const QString home = m_tree->dir("home");
    QCOMPARE(::chown(QFile::encodeName(home).constData(), user, group), 0);
    QVERIFY(core::makePrivateDirectory(home + QStringLiteral("/.config/morvane")));
    const QString replaced = m_tree->file("home/.config/morvane/replaced");
    const QString linked = m_tree->file("elsewhere");
    const QString second = home + QStringLiteral("/.config/morvane/second");
    QCOMPARE(::link(QFile::encodeName(linked).constData(), QFile::encodeName(second).constData()),
             0);
    core::makePrivateFile(home + QStringLiteral("/.config/morvane/new"));
    core::restrictFile(replaced);
    core::restrictFile(second);
    for (const char *below : {"", "/morvane", "/morvane/new", "/morvane/replaced"}) {
        const struct stat info =
            statusOf(home + QStringLiteral("/.config") + QString::fromLatin1(below));
        QCOMPARE(info.st_uid, user);
        QCOMPARE(info.st_gid, group);
    }
    // Another name of a file of root's is not given away.
    QCOMPARE(statusOf(second).st_uid, uid_t(0));
}

QTEST_GUILESS_MAIN(TestPrivateFile)
#include "tst_privatefile.moc"
