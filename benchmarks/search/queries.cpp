#include "corpus.h"
#include "report.h"
#include "search/names/namesearch.h"
#include "search/query/contentsearch.h"
#include "search/searchindexdb.h"
#include "search/searchkeywords.h"
#include "subjects.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QSet>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QTextStream>

#include <ctime>
#include <functional>

namespace {

constexpr double allowedRatio = 1.1;
constexpr int nameLimit = 200;
constexpr int contentLimit = 100;
constexpr int documentsPerBatch = 100;

struct Kind
{
    const char *name;
    WordKind kind;
};
constexpr Kind kinds[] = {{"frequent", WordKind::Frequent},
                          {"rare", WordKind::Rare},
                          {"absent", WordKind::Absent},
                          {"Chinese", WordKind::Chinese}};

using Search = std::function<int(const QString &)>; // number of rows, negative on failure
using Words = std::function<QStringList(WordKind)>;

// A plain connection with the statements as a person would write them. Rows are delivered as the
// same maps, which cost the more the more frequent a word is.
class BareQueries
{
public:
    explicit BareQueries(const QString &path)
        : m_database(QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("bare")))
    {
        m_database.setDatabaseName(path);
        m_database.open();
    }
    ~BareQueries()
    {
        m_database = QSqlDatabase();
        QSqlDatabase::removeDatabase(QStringLiteral("bare"));
    }
    BareQueries(const BareQueries &) = delete;
    BareQueries &operator=(const BareQueries &) = delete;

    int names(const QString &word)
    {
        const QString pattern = search::likePattern(word);
        return run(QStringLiteral("SELECT path,file_name,size,modified_ms,category FROM file_index "
                                  "WHERE (file_name LIKE ? OR path LIKE ?) "
                                  "ORDER BY modified_ms DESC LIMIT ?"),
                   {pattern, pattern, nameLimit}, 5);
    }

    int contents(const QString &word)
    {
        m_paths.clear();
        // FTS5 refuses phrases; the second statement serves them.
        const int ranked = qMax(
            0,
            run(QStringLiteral("SELECT fi.path,fi.file_name,fi.size,fi.modified_ms,fi.category,"
                               "bm25(content_fts),fi.content FROM content_fts JOIN file_index fi "
                               "ON fi.id = content_fts.rowid WHERE content_fts MATCH ? "
                               "ORDER BY bm25(content_fts) LIMIT ?"),
                {search::buildFtsMatchExpr(word), contentLimit}, 7));
        if (ranked >= contentLimit)
            return ranked;
        const int rest =
            run(QStringLiteral("SELECT path,file_name,size,modified_ms,category,content "
                               "FROM file_index WHERE content LIKE ? "
                               "ORDER BY modified_ms DESC LIMIT ?"),
                {search::likePattern(word), contentLimit}, 6);
        return rest < 0 ? rest : qMin(m_paths.size(), contentLimit);
    }

    QStringList paths()
    {
        QSqlQuery query(m_database);
        query.exec(QStringLiteral("SELECT path FROM file_index ORDER BY id"));
        QStringList found;
        while (query.next())
            found.append(query.value(0).toString());
        return found;
    }

private:
    int run(const QString &sql, const QVariantList &values, int columns)
    {
        QSqlQuery query(m_database);
        query.setForwardOnly(true);
        query.prepare(sql);
        for (const QVariant &value : values)
            query.addBindValue(value);
        if (!query.exec())
            return -1;
        static const QString keys[] = {QStringLiteral("path"),     QStringLiteral("name"),
                                       QStringLiteral("size"),     QStringLiteral("modifiedMs"),
                                       QStringLiteral("category"), QStringLiteral("snippet"),
                                       QStringLiteral("score")};
        QVariantList results;
        while (query.next()) {
            QVariantMap result;
            for (int i = 0; i < 7; ++i)
                result.insert(keys[i], i < columns ? query.value(i) : QVariant());
            m_paths.insert(query.value(0).toString());
            results.append(result);
        }
        return results.size();
    }

    QSqlDatabase m_database;
    QSet<QString> m_paths;
};

// Of the calling thread, kernel included: other programs on the machine do not blur it.
double threadMs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

double timed(const Search &search, const QString &word, int *rows)
{
    const double start = threadMs();
    *rows = search(word);
    return threadMs() - start;
}

double wallTimed(const Search &search, const QString &word)
{
    QElapsedTimer clock;
    clock.start();
    search(word);
    return double(clock.nsecsElapsed()) / 1e6;
}

ReportRow ratioRow(const QString &subject, double ours, double bare, bool limited)
{
    return {subject, milliseconds(ours), milliseconds(bare), ours / bare,
            limited ? QStringLiteral("at most %1").arg(allowedRatio) : QString()};
}

// Runs every word through both in turn; false if they do not give the same number of rows.
bool compare(const QString &title, const Words &words, const Search &ours, const Search &bare,
             int rounds)
{
    QVector<ReportRow> rows;
    QVector<double> allOurs;
    QVector<double> allBare;
    QVector<double> ratios;
    for (const Kind &kind : kinds) {
        QVector<double> kindOurs;
        QVector<double> kindBare;
        const QStringList list = words(kind.kind);
        for (const QString &word : list) {
            QVector<double> times[2];
            for (int round = 0; round < rounds; ++round) {
                int found[2] = {0, 0};
                times[0].append(timed(ours, word, &found[0]));
                times[1].append(timed(bare, word, &found[1]));
                if (found[0] < 0 || found[0] != found[1]) {
                    QTextStream(stderr) << title << ": " << word << ": " << found[0] << " rows, "
                                        << found[1] << " by the bare statement\n";
                    return false;
                }
            }
            kindOurs.append(median(times[0]));
            kindBare.append(median(times[1]));
            ratios.append(kindOurs.constLast() / kindBare.constLast());
        }
        const QString name = QString::fromLatin1(kind.name) + QLatin1String(" words, median");
        rows.append(ratioRow(name, median(kindOurs), median(kindBare), true));
        allOurs += kindOurs;
        allBare += kindBare;
    }
    rows.append(
        ratioRow(QStringLiteral("all words, median"), median(allOurs), median(allBare), true));
    rows.append(ratioRow(QStringLiteral("all words, 99th percentile"), percentile(allOurs, 0.99),
                         percentile(allBare, 0.99), true));
    rows.append({QStringLiteral("ratio of single words, 99th percentile"), QString(), QString(),
                 percentile(ratios, 0.99), QString()});
    printReport(title, rows);
    return true;
}

// plocate lists matching paths of the same tree in no particular order; it informs only.
void comparePlocate(const BenchOptions &options, const Words &words, const Search &ours)
{
    const QString plocate = QStandardPaths::findExecutable(QStringLiteral("plocate"));
    const QString updatedb = QStandardPaths::findExecutable(
        QStringLiteral("updatedb"), {QStringLiteral("/usr/sbin"), QStringLiteral("/usr/bin")});
    if (plocate.isEmpty() || updatedb.isEmpty()) {
        QTextStream(stdout) << "  plocate is not installed\n";
        return;
    }
    const QString database = options.workDir + QLatin1String("/plocate.db");
    // The system's lists of what not to look into name /tmp, where the tree is.
    const int made = QProcess::execute(
        updatedb, {QStringLiteral("-l"), QStringLiteral("0"), QStringLiteral("-U"),
                   options.treeDir(), QStringLiteral("-o"), database,
                   QStringLiteral("--prunepaths"), QString(), QStringLiteral("--prunefs"),
                   QString(), QStringLiteral("--prune-bind-mounts"), QStringLiteral("no")});
    if (made != 0) {
        QTextStream(stdout) << "  updatedb failed\n";
        return;
    }
    const Search locate = [&](const QString &word) {
        QProcess process;
        process.start(plocate, {QStringLiteral("-i"), QStringLiteral("-d"), database,
                                QStringLiteral("-l"), QString::number(nameLimit), word});
        process.waitForFinished(-1);
        return process.readAllStandardOutput().count('\n');
    };
    QVector<ReportRow> rows;
    for (const Kind &kind : kinds) {
        QVector<double> times[2];
        const QStringList list = words(kind.kind);
        for (const QString &word : list) {
            times[0].append(wallTimed(ours, word));
            times[1].append(wallTimed(locate, word));
        }
        const QString name = QString::fromLatin1(kind.name) + QLatin1String(" words, median");
        rows.append(ratioRow(name, median(times[0]), median(times[1]), false));
    }
    printReport(QStringLiteral("Name search against a plocate process (unsorted; informs only)"),
                rows);
}

// Lines as the page asks them, by the clock, since they use both cores; each word once in turn. The
// bare statements know neither folding nor pinyin and may find fewer rows.
bool compareLines(const QString &title, const Words &words, const QStringList &furtherWords,
                  const Search &line, const Search &bare)
{
    QVector<ReportRow> rows;
    QVector<double> all;
    const auto measure = [&](const QString &name, const QStringList &list) {
        QVector<double> times[2];
        for (const QString &word : list) {
            times[0].append(wallTimed(line, word));
            times[1].append(wallTimed(bare, word));
        }
        rows.append(ratioRow(name, median(times[0]), median(times[1]), false));
        all += times[0];
    };
    for (const Kind &kind : kinds)
        measure(QString::fromLatin1(kind.name) + QLatin1String(" words, median"), words(kind.kind));
    if (!furtherWords.isEmpty())
        measure(QStringLiteral("pinyin, median"), furtherWords);
    rows.append({QStringLiteral("all words, median"), milliseconds(median(all)), QString(), 0.0,
                 QString()});
    rows.append({QStringLiteral("all words, 99th percentile"), milliseconds(percentile(all, 0.99)),
                 QString(), 0.0, QString()});
    printReport(title, rows);
    return true;
}

// Gives every n-th file a text.
bool addDocuments(SearchIndexDB *index, const QStringList &paths, int documents, Corpus *corpus,
                  QString *error)
{
    QMap<QString, QString> batch;
    for (int i = 0; i < documents; ++i) {
        batch.insert(paths.value(int(qint64(i) * paths.size() / documents)), corpus->text());
        if (batch.size() == documentsPerBatch || i == documents - 1) {
            if (!index->updateFileContentBatch(batch, error))
                return false;
            batch.clear();
        }
    }
    return index->vacuum(error);
}

} // namespace

bool benchNameQueries(const BenchOptions &options)
{
    SearchIndexDB index(options.indexPath());
    if (!index.open())
        return false;
    BareQueries bare(options.indexPath());
    Corpus corpus;
    const Words words = [&corpus](WordKind kind) {
        return corpus.nameWords(kind);
    };
    const Search ours = [&index](const QString &word) {
        QString error;
        const int rows = index.queryByName(word, nameLimit, QString(), &error).size();
        return error.isEmpty() ? rows : -1;
    };
    if (!compare(
            QStringLiteral("Name search, limit 200 (baseline: the bare statement, same maps)"),
            words, ours, [&bare](const QString &word) { return bare.names(word); }, options.rounds))
        return false;
    comparePlocate(options, words, ours);
    return true;
}

bool benchContentQueries(const BenchOptions &options)
{
    Corpus corpus;
    SearchIndexDB index(options.indexPath());
    BareQueries bare(options.indexPath());
    QString error;
    if (!addDocuments(&index, bare.paths(), options.documents, &corpus, &error)) {
        QTextStream(stderr) << "documents: " << error << '\n';
        return false;
    }
    const Search ours = [&index](const QString &word) {
        QString text;
        const int rows = index.queryByContent(word, contentLimit, QString(), &text).size();
        return text.isEmpty() ? rows : -1;
    };
    return compare(
        QStringLiteral("Content search, limit 100 (baseline: the bare statements)"),
        [&corpus](WordKind kind) { return corpus.textWords(kind); }, ours,
        [&bare](const QString &word) { return bare.contents(word); }, options.rounds);
}

bool benchLineQueries(const BenchOptions &options)
{
    SearchIndexDB index(options.indexPath());
    if (!index.open())
        return false;
    Corpus corpus;
    BareQueries bare(options.indexPath());
    const auto never = [] {
        return false;
    };
    QElapsedTimer clock;
    clock.start();
    search::names::NameIndex names(options.indexPath(), [] {});
    names.waitForRows(index.connection());
    const qint64 loadMs = clock.elapsed();
    const auto rows = names.view(index.connection()).rows;
    QTextStream(stdout) << "  names in memory: " << (rows ? rows->memoryBytes() / 1048576 : 0)
                        << " MiB, read in " << loadMs << " ms; index "
                        << QFileInfo(options.indexPath()).size() / 1048576 << " MiB\n";
    const Search nameLine = [&](const QString &word) {
        return search::names::searchNames(index.connection(), &names, word, nameLimit, QString(),
                                          never, nullptr)
            .size();
    };
    const Search textLine = [&](const QString &word) {
        return search::query::searchContents(index.connection(), word, contentLimit, QString(),
                                             never, nullptr)
            .size();
    };
    const QStringList pinyin{QStringLiteral("hetong"),  QStringLiteral("ht"),
                             QStringLiteral("baogao"),  QStringLiteral("bg"),
                             QStringLiteral("yusuan"),  QStringLiteral("zhaopian"),
                             QStringLiteral("huiyijl"), QStringLiteral("zzzz")};
    return compareLines(
               QStringLiteral("Name lines in memory (baseline: the bare statement)"),
               [&corpus](WordKind kind) { return corpus.nameWords(kind); }, pinyin, nameLine,
               [&bare](const QString &word) { return bare.names(word); }) &&
           compareLines(
               QStringLiteral("Content lines (baseline: the bare statements)"),
               [&corpus](WordKind kind) { return corpus.textWords(kind); }, QStringList(), textLine,
               [&bare](const QString &word) { return bare.contents(word); });
}

bool makeIndex(const BenchOptions &options)
{
    if (runBuilder(options.treeDir(), options.indexPath()) != 0)
        return false;
    Corpus corpus;
    SearchIndexDB index(options.indexPath());
    QString error;
    if (addDocuments(&index, BareQueries(options.indexPath()).paths(), options.documents, &corpus,
                     &error))
        return true;
    QTextStream(stderr) << "documents: " << error << '\n';
    return false;
}
