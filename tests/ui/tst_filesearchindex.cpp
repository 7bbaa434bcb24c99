#include "search/indexbuilder.h"
#include "search/indexwatcher.h"
#include "search/searchsettings.h"
#include "support/dialogsteps.h"
#include "support/indexsnapshot.h"
#include "ui/pages/filesearchpage/searchengines.h"
#include "ui/searchpagefixture.h"

#include <QAbstractItemView>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <sys/stat.h>
#include <unistd.h>

using support::ModalDriver;

namespace {

constexpr auto Names = SearchPageFixture::Names;
constexpr auto Contents = SearchPageFixture::Contents;

/// The full text index cannot be written any more.
const QString damage = QStringLiteral("DROP TABLE IF EXISTS content_fts_data");

QStringList list(const char *text)
{
    return QString::fromUtf8(text).split(QLatin1Char(' '));
}

} // namespace

/// How the page builds its index, keeps it fresh and takes its settings.
class TestFileSearchIndex : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_f.reset(new SearchPageFixture); }
    void cleanup() { m_f.reset(); }
    void buildsOnceAtATimeAndStops();
    void searchesAgainAfterABuild();
    void refreshesWithoutDeleting();
    void answersAnInvalidIndex_data();
    void answersAnInvalidIndex();
    void doesNotRebuildForeverWhenBuildsFail();
    void stillRebuildsAfterOtherFailures_data();
    void stillRebuildsAfterOtherFailures();
    void rebuildsOnceWhatARefreshFindsDamaged_data();
    void rebuildsOnceWhatARefreshFindsDamaged();
    void recoveryLeavesTheIndexToTheUser();
    void followsChangesOnlyWhenTold_data();
    void followsChangesOnlyWhenTold();
    void savesSettings();
    void warnsOnceAboutMissingTools();
    void endsQuicklyDuringABuild();

private:
    void refreshOnlyByTimer();
    QTimer *refreshTimer() const;

    QScopedPointer<SearchPageFixture> m_f;
};

void TestFileSearchIndex::refreshOnlyByTimer()
{
    m_f->setSetting(QStringLiteral("search/inotifyMaxDepth"), -1);
    m_f->setSetting(QStringLiteral("search/incrementalIntervalHours"), 2);
}

/// Null while no refresh is due.
QTimer *TestFileSearchIndex::refreshTimer() const
{
    const auto timers = m_f->page()->findChildren<QTimer *>(QString(), Qt::FindDirectChildrenOnly);
    for (QTimer *candidate : timers) {
        if (candidate->isActive() && candidate->interval() == 2 * 3600000)
            return candidate;
    }
    return nullptr;
}

void TestFileSearchIndex::buildsOnceAtATimeAndStops()
{
    SearchPageFixture::setTool("pdftotext", "exec sleep 20");
    m_f->file(QStringLiteral("slow.pdf"));
    m_f->open();
    m_f->click("BuildIndexButton");
    QCOMPARE(m_f->status(), QStringLiteral("正在构建索引..."));
    QTRY_VERIFY(m_f->child<QWidget>("BuildProgressCard")->isVisible());
    QTRY_COMPARE(m_f->child<QLabel>("BuildProgressText")->text(),
                 QStringLiteral("已扫描 1 个文件 — 正在提取文件内容（0 / 1）..."));
    m_f->click("BuildIndexButton");
    QCOMPARE(m_f->status(), QStringLiteral("索引构建正在进行中"));
    m_f->page()->onIndexInvalidated();
    QCOMPARE(m_f->status(), QStringLiteral("索引构建正在进行中"));
    m_f->page()->onBuildProgress(7, m_f->home(QStringLiteral("目录/文件.txt")));
    QTRY_COMPARE(m_f->child<QLabel>("BuildProgressText")->text(),
                 QStringLiteral("已扫描 7 个文件 — 文件.txt"));

    m_f->click("BuildStopButton");
    QTRY_COMPARE(m_f->status(), QStringLiteral("索引构建已取消"));
    QVERIFY(m_f->statusIsError());
    QVERIFY(!m_f->child<QWidget>("BuildProgressCard")->isVisible());
}

void TestFileSearchIndex::searchesAgainAfterABuild()
{
    m_f->open();
    m_f->search(Names, QStringLiteral("报告"));
    QTRY_COMPARE(m_f->state(Names), QStringLiteral("没有找到匹配的文件"));
    m_f->choose(Contents);
    m_f->search(Contents, QStringLiteral("正文"));
    QTRY_COMPARE(m_f->state(Contents), QStringLiteral("没有找到匹配的文件"));
    m_f->file(QStringLiteral("报告.txt"), "正文");
    QVERIFY(m_f->build());
    QTRY_COMPARE(m_f->rows(Names), list("报告.txt"));
    QTRY_COMPARE(m_f->rows(Contents), list("报告.txt"));
}

void TestFileSearchIndex::refreshesWithoutDeleting()
{
    refreshOnlyByTimer();
    const QString gone = m_f->file(QStringLiteral("gone.txt"));
    m_f->open();
    QVERIFY(m_f->build());
    executeOn(m_f->databasePath(), {QStringLiteral("CREATE TABLE mark(x)")});
    QVERIFY(QFile::remove(gone));
    m_f->file(QStringLiteral("new.txt"));

    QTimer *timer = refreshTimer();
    QVERIFY(timer);
    timer->setInterval(1);
    // The end of the refresh starts the timer anew.
    QTRY_COMPARE(timer->interval(), 2 * 3600000);
    QCOMPARE(m_f->status(), QStringLiteral("索引构建完成，共 1 个文件"));
    // The database is the old one; the row of the vanished file goes in a step of its own.
    executeOn(m_f->databasePath(), {QStringLiteral("DROP TABLE mark")});
    QTRY_COMPARE(readIndex(m_f->databasePath()).keys(),
                 QStringList{m_f->home(QStringLiteral("new.txt"))});

    QVERIFY(m_f->build());
    QCOMPARE(readIndex(m_f->databasePath()).size(), 1);
}

void TestFileSearchIndex::answersAnInvalidIndex_data()
{
    QTest::addColumn<bool>("autoRebuild");
    QTest::newRow("rebuilds by itself") << true;
    QTest::newRow("only tells") << false;
}

void TestFileSearchIndex::answersAnInvalidIndex()
{
    QFETCH(bool, autoRebuild);
    m_f->setSetting(QStringLiteral("search/autoRebuild"), autoRebuild);
    m_f->file(QStringLiteral("a.txt"));
    m_f->open();
    QVERIFY(m_f->build());
    m_f->file(QStringLiteral("b.txt"));
    // Written again and again, since the watcher needs a moment to start.
    QTRY_VERIFY(QFileInfo::exists(m_f->file(QStringLiteral("b.txt"))) &&
                readIndex(m_f->databasePath()).size() == 2);
    // The watcher notices.
    for (const char *suffix : {"", "-wal", "-shm"})
        QFile::remove(m_f->databasePath() + QLatin1String(suffix));
    if (autoRebuild) {
        QTRY_COMPARE(m_f->status(), QStringLiteral("索引构建完成，共 2 个文件"));
        QCOMPARE(readIndex(m_f->databasePath()).size(), 2);
    } else {
        QTRY_COMPARE(m_f->status(),
                     QStringLiteral("检测到文件系统变化，请重建索引以获得最新结果。"));
        QVERIFY(!QFileInfo::exists(m_f->databasePath()));
    }
}

void TestFileSearchIndex::doesNotRebuildForeverWhenBuildsFail()
{
    m_f->file(QStringLiteral("obstacle"));
    m_f->paths().databasePath = m_f->home(QStringLiteral("obstacle/index.db"));
    m_f->open();
    const auto *watcher = m_f->page()->findChild<IndexWatcher *>();
    for (const bool byHand : {false, true}) {
        if (byHand)
            m_f->click("BuildIndexButton");
        const QString failure = QStringLiteral("打开索引数据库失败：");
        QTRY_VERIFY(m_f->status().startsWith(failure) && !watcher->isRunning());
        // The watcher's alarm, which came before its end, starts nothing and hides nothing.
        QCoreApplication::processEvents();
        QVERIFY2(m_f->status().startsWith(failure), qPrintable(m_f->status()));
        QVERIFY(m_f->statusIsError());
    }
}

void TestFileSearchIndex::stillRebuildsAfterOtherFailures_data()
{
    QTest::addColumn<bool>("stopped");
    QTest::newRow("a build that the user stopped") << true;
    QTest::newRow("a refresh on a full disk") << false;
}

void TestFileSearchIndex::stillRebuildsAfterOtherFailures()
{
    QFETCH(bool, stopped);
    refreshOnlyByTimer();
    m_f->file(QStringLiteral("a.txt"));
    m_f->open();
    if (stopped) {
        SearchPageFixture::setTool("pdftotext", "exec sleep 20");
        m_f->file(QStringLiteral("slow.pdf"));
        m_f->click("BuildIndexButton");
        QTRY_VERIFY(m_f->child<QWidget>("BuildProgressCard")->isVisible());
        m_f->click("BuildStopButton");
        QTRY_COMPARE(m_f->status(), QStringLiteral("索引构建已取消"));
        SearchPageFixture::setTool("pdftotext", "exit 0");
        QVERIFY(QFile::remove(m_f->home(QStringLiteral("slow.pdf"))));
    } else {
        QVERIFY(m_f->build());
        // The refresh has something to write: a file that is newer than its row.
        executeOn(m_f->databasePath(),
                  {QStringLiteral("UPDATE file_index SET modified_ms = modified_ms - 5000"),
                   QStringLiteral("CREATE TRIGGER t BEFORE UPDATE ON file_index BEGIN SELECT "
                                  "RAISE(ABORT, 'database or disk is full'); END")});
        refreshTimer()->setInterval(1);
        QTRY_VERIFY2(m_f->status().startsWith(QStringLiteral("写入索引失败：磁盘空间不足")),
                     qPrintable(m_f->status()));
        // The old index is kept.
        QCOMPARE(readIndex(m_f->databasePath()).size(), 1);
    }
    QVERIFY(m_f->statusIsError());
    m_f->page()->onIndexInvalidated();
    QTRY_COMPARE(m_f->status(), QStringLiteral("索引构建完成，共 1 个文件"));
}

void TestFileSearchIndex::rebuildsOnceWhatARefreshFindsDamaged_data()
{
    QTest::addColumn<bool>("autoRebuild");
    QTest::addColumn<bool>("repairable");
    QTest::addColumn<int>("builds");
    QTest::addColumn<QString>("status"); ///< its beginning
    QTest::newRow("repaired") << true << true << 2 << "索引构建完成，共 2 个文件";
    QTest::newRow("damaged again") << true << false << 2 << "写入";
    QTest::newRow("not wanted") << false << true << 1 << "写入";
}

void TestFileSearchIndex::rebuildsOnceWhatARefreshFindsDamaged()
{
    QFETCH(bool, autoRebuild);
    QFETCH(bool, repairable);
    QFETCH(int, builds);
    QFETCH(QString, status);
    refreshOnlyByTimer();
    m_f->setSetting(QStringLiteral("search/autoRebuild"), autoRebuild);
    m_f->file(QStringLiteral("a.txt"), "first");
    m_f->open();
    QVERIFY(m_f->build());
    executeOn(m_f->databasePath(), {damage});
    m_f->file(QStringLiteral("a.txt"), "second");
    m_f->file(QStringLiteral("b.txt"), "new");
    auto *builder = m_f->page()->findChild<filesearch::SearchEngines *>()->builder();
    QSignalSpy finished(builder, &IndexBuilder::finished);
    if (!repairable) {
        // On the builder's thread, where each build begins.
        connect(builder, &IndexBuilder::progressChanged, builder,
                [database = m_f->databasePath()](int, const QString &text) {
                    if (text == QStringLiteral("正在扫描文件系统..."))
                        executeOn(database, {damage});
                });
    }
    refreshTimer()->setInterval(1);
    // The end of the last build starts the timer again.
    QTRY_VERIFY(refreshTimer());
    QCOMPARE(m_f->statusIsError(), builds == 1 || !repairable);
    m_f->page()->onIncrementalIndexUpdated(QStringLiteral("/a"), QString(), true);
    if (!repairable)
        m_f->page()->onIndexInvalidated(); // as by the watcher, which fails as well
    QCOMPARE(finished.size(), builds);
    QVERIFY2(m_f->status().startsWith(status), qPrintable(m_f->status()));
}

/// Root builds it on a recovery medium; the user goes on with it, and nobody else reads it.
void TestFileSearchIndex::recoveryLeavesTheIndexToTheUser()
{
    constexpr uint user = 4711;
    constexpr uint group = 4712;
    if (::geteuid() != 0)
        QSKIP("only root makes files for others");
    m_f->file(QStringLiteral("a.txt"));
    QCOMPARE(::chown(QFile::encodeName(m_f->home()).constData(), user, group), 0);
    m_f->useMode(core::AppMode::livecd);
    QString error;
    QVERIFY2(searchsettings::save(m_f->paths(), searchsettings::defaults(m_f->paths()), &error),
             qPrintable(error));
    const mode_t mask = ::umask(0);
    m_f->open();
    const bool built = m_f->build();
    ::umask(mask);
    QVERIFY(built);

    QStringList made;
    QDirIterator it(m_f->home(), QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QFileInfo info(it.next());
        if (!info.filePath().startsWith(m_f->home(QStringLiteral(".config"))))
            continue;
        made.append(info.fileName());
        struct stat status = {};
        // The database makes its shared memory as root and gives it away in the next call.
        const QByteArray path = QFile::encodeName(info.filePath());
        QTRY_VERIFY2(::lstat(path.constData(), &status) != 0 ||
                         (status.st_uid == user && status.st_gid == group),
                     path.constData());
        QVERIFY2((status.st_mode & 077) == 0, qPrintable(info.filePath()));
    }
    for (const char *name : {".config", "morvane", "search_index.db", "morvane_livecd.conf"})
        QVERIFY2(made.contains(QLatin1String(name)), name);
}

void TestFileSearchIndex::followsChangesOnlyWhenTold_data()
{
    QTest::addColumn<int>("depth");
    QTest::addColumn<bool>("watches");
    QTest::newRow("no limit") << 0 << true;
    QTest::newRow("five levels") << 5 << true;
    QTest::newRow("never") << -1 << false;
}

void TestFileSearchIndex::followsChangesOnlyWhenTold()
{
    QFETCH(int, depth);
    QFETCH(bool, watches);
    m_f->setSetting(QStringLiteral("search/inotifyMaxDepth"), depth);
    m_f->open();
    auto *watcher = m_f->page()->findChild<IndexWatcher *>();
    QCOMPARE(watcher->isRunning(), watches);
    QVERIFY(m_f->build());
    QTRY_COMPARE(watcher->isRunning(), watches);
    m_f->page()->onIncrementalIndexUpdated(QStringLiteral("/a"), QStringLiteral("upsert-file"),
                                           false);
    QCOMPARE(m_f->status(), QStringLiteral("增量更新失败，请手动重建索引。"));
    QVERIFY(m_f->statusIsError());
}

void TestFileSearchIndex::savesSettings()
{
    m_f->file(QStringLiteral("sub/in.txt"));
    m_f->file(QStringLiteral("out.txt"));
    m_f->setSetting(QStringLiteral("search/indexRoots"),
                    QStringList({m_f->home(), m_f->home(QStringLiteral("sub"))}));
    m_f->open();
    QVERIFY(m_f->build());
    const auto change = [](const char *end) {
        return [end](QWidget *dialog) {
            auto *roots = dialog->findChild<QListWidget *>(QStringLiteral("IndexRootsList"));
            QTest::mouseClick(roots->viewport(), Qt::LeftButton, Qt::NoModifier,
                              roots->visualItemRect(roots->item(0)).center());
            QTest::mouseClick(dialog->findChild<QPushButton *>(QStringLiteral("IndexRootsRemove")),
                              Qt::LeftButton);
            QTest::keyClick(dialog->findChild<QComboBox *>(QStringLiteral("WatchDepthCombo")),
                            Qt::Key_Home);
            QTest::keyClick(
                dialog->findChild<QComboBox *>(QStringLiteral("IncrementalIntervalCombo")),
                Qt::Key_End);
            dialog->findChild<QCheckBox *>(QStringLiteral("AutoRebuildBox"))->click();
            QTest::mouseClick(dialog->findChild<QPushButton *>(QString::fromLatin1(end)),
                              Qt::LeftButton);
        };
    };
    {
        ModalDriver cancelled(change("IndexSettingsCancel"));
        m_f->click("IndexSettingsButton");
        QVERIFY(cancelled.handled());
        QVERIFY(!m_f->setting(QStringLiteral("search/autoRebuild")).isValid());
    }
    ModalDriver accepted(change("IndexSettingsAccept"));
    m_f->click("IndexSettingsButton");
    QVERIFY(accepted.handled());
    QCOMPARE(m_f->status(), QStringLiteral("索引设置已更新"));
    const auto text = [](const QVariant &value) {
        return value.type() == QVariant::StringList ? value.toStringList().join(QLatin1Char(' '))
                                                    : value.toString();
    };
    const QMap<QString, QVariant> stored = {
        {QStringLiteral("search/indexRoots"), m_f->home(QStringLiteral("sub"))},
        {QStringLiteral("search/excludeDirs"),
         list(".git node_modules .cache __pycache__ .venv .tox .morvane_vault")},
        {QStringLiteral("search/ftsExtensions"),
         list("doc docx xls xlsx ppt pptx pdf rtf csv txt odt ods odp ofd epub wps et dps md")},
        {QStringLiteral("search/autoRebuild"), QStringLiteral("false")},
        {QStringLiteral("search/inotifyMaxDepth"), QStringLiteral("3")},
        {QStringLiteral("search/incrementalIntervalHours"), QStringLiteral("0")}};
    for (auto it = stored.cbegin(); it != stored.cend(); ++it)
        QCOMPARE(text(m_f->setting(it.key())), text(it.value()));
    m_f->click("BuildIndexButton");
    QTRY_COMPARE(m_f->status(), QStringLiteral("索引构建完成，共 1 个文件"));
}

void TestFileSearchIndex::warnsOnceAboutMissingTools()
{
    m_f->open();
    const QStringList lines = {QStringLiteral("pdftotext 缺失"), QStringLiteral("unzip 缺失")};
    QStringList texts;
    ModalDriver driver(support::presses("NoticeOkBtn", &texts));
    m_f->page()->onToolsMissing(lines);
    m_f->page()->onBuildFinished(true, QStringLiteral("索引构建完成，共 0 个文件"));
    QVERIFY(driver.handled());
    QCOMPARE(texts.value(0), QStringLiteral("部分全文提取工具缺失"));
    QVERIFY(texts.value(1).startsWith(
        QStringLiteral("以下工具未安装，相关格式的文件将无法提取文本内容进行全文索引：")));
    QVERIFY(texts.value(1).endsWith(lines.join(QLatin1Char('\n'))));
    // A second dialog would stay open here.
    m_f->page()->onToolsMissing(lines);
    m_f->page()->onBuildFinished(true, QString());
    QVERIFY(!QApplication::activeModalWidget());
}

void TestFileSearchIndex::endsQuicklyDuringABuild()
{
    SearchPageFixture::setTool("pdftotext", "exec sleep 20");
    for (int i = 0; i < 20; ++i)
        m_f->file(QStringLiteral("%1.pdf").arg(i));
    QElapsedTimer timer;
    // Once while it runs, once before it even started.
    for (const bool running : {true, false}) {
        m_f->open();
        m_f->click("BuildIndexButton");
        if (running)
            QTRY_VERIFY(m_f->child<QWidget>("BuildProgressCard")->isVisible());
        timer.start();
        m_f->close();
        QVERIFY2(timer.elapsed() < 3000, qPrintable(QString::number(timer.elapsed())));
    }
}

QTEST_MAIN(TestFileSearchIndex)
#include "tst_filesearchindex.moc"
