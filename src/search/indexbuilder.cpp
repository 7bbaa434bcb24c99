#include "search/indexbuilder.h"

#include "core/controllers/search/searchpathresolver.h"
#include "search/contentextractor.h"
#include "search/extractiontask.h"
#include "search/filewalker.h"
#include "search/indexfailure.h"
#include "search/indexrefresh.h"
#include "search/indexroots.h"
#include "search/pathexclusion.h"
#include "search/searchindexdb.h"
#include "search/sqlinterrupter.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QThread>
#include <QThreadPool>

#include <memory>
#include <utility>

namespace {

const int filesPerBatch = 500;
/// Length of one slice in which results gather before they are written.
const int sliceMs = 150;
/// How long an ended build waits for its pool threads.
const int poolGraceMs = 5000;
/// Texts that enter the gram index in one transaction.
const int gramsPerStep = 100;

struct RequiredTool
{
    QLatin1String tool;
    QLatin1String package;
    const char *formats; ///< UTF-8.
};

const RequiredTool requiredTools[] = {
    {QLatin1String("pdftotext"), QLatin1String("poppler-utils"), "PDF"},
    {QLatin1String("catdoc"), QLatin1String("catdoc"), "DOC"},
    {QLatin1String("xls2csv"), QLatin1String("catdoc"), "XLS"},
    {QLatin1String("catppt"), QLatin1String("catdoc"), "PPT"},
    {QLatin1String("antiword"), QLatin1String("antiword"), "DOC (备选)"},
    {QLatin1String("unrtf"), QLatin1String("unrtf"), "RTF"},
    {QLatin1String("unzip"), QLatin1String("unzip"), "DOCX/XLSX/PPTX/ODT/EPUB/WPS/ET/DPS"},
};

QStringList missingToolLines()
{
    QStringList lines;
    for (const RequiredTool &row : requiredTools) {
        if (ContentExtractor::resolveToolExecutable(row.tool).isEmpty())
            lines.append(QStringLiteral("%1 缺失（安装 %2 以支持 %3）")
                             .arg(row.tool, row.package, QString::fromUtf8(row.formats)));
    }
    return lines;
}

/// More than six external programs at once would only make the machine slow.
int defaultExtractionThreads()
{
    return qMin(qMax(QThread::idealThreadCount(), 2), 6);
}

/// One build: its database connection, its rules and what it has counted so far.
class IndexBuild
{
public:
    struct Options
    {
        QString dbPath;
        QString storedPrefix; ///< What stands before stored paths at run time.
        PathExclusion exclusion;
        SuffixSet ftsSuffixes;
        int maxContentBytes;
        int extractionThreads;
    };

    IndexBuild(IndexBuilder &builder, std::atomic_bool &stop, search::SqlInterrupter &interrupter,
               Options options)
        : m_builder(builder)
        , m_stop(stop)
        , m_interrupter(interrupter)
        , m_options(std::move(options))
        , m_db(m_options.dbPath)
        , m_extraction(m_options.maxContentBytes, stop)
    {}

    /// The message belongs to the result, also of a success.
    bool run(const QStringList &roots, QString *message);

private:
    bool scan(const QStringList &roots, QString *message);
    bool takeFile(const QString &name, const QString &path, QString *message);
    bool writeBatch(const QString &lastPath, QString *message);
    bool prune(const QStringList &roots, QString *message);
    bool extractTexts(QString *message);
    bool addMissingGrams(QString *message);
    void tidyUp();
    bool writeTexts(const QList<ExtractResult> &results, QString *message);
    bool cancelled(QString *message) const;
    bool fail(const QString &what, const QString &error, QString *message);
    void report(const QString &text) { emit m_builder.progressChanged(m_indexed, text); }

    IndexBuilder &m_builder;
    std::atomic_bool &m_stop;
    search::SqlInterrupter &m_interrupter;
    const Options m_options;
    SearchIndexDB m_db;
    std::unique_ptr<search::KnownFiles> m_known;
    search::MetPaths m_met;
    QList<QFileInfo> m_batch;
    QStringList m_batchPaths;
    Extraction m_extraction;
    int m_indexed = 0;
};

bool IndexBuild::run(const QStringList &roots, QString *message)
{
    QString error;
    if (!m_db.open(&error))
        return fail(QStringLiteral("打开索引数据库失败：%1"), error, message);
    m_db.deferErasing();
    m_known = std::make_unique<search::KnownFiles>(m_db.connection());
    m_known->open(search::textSettings(m_options.maxContentBytes));
    const QStringList outermost = search::outermostRoots(roots);
    if (!scan(outermost, message) || !prune(outermost, message))
        return false;
    if (m_extraction.fileCount() > 0 && !extractTexts(message))
        return false;
    if (!addMissingGrams(message))
        return false;
    m_known->noteTextSettings();
    m_known.reset();
    tidyUp();
    *message = QStringLiteral("索引构建完成，共 %1 个文件").arg(m_indexed);
    return true;
}

/// What is gone needs no text; what was not compacted is compacted the next time.
void IndexBuild::tidyUp()
{
    report(QStringLiteral("正在优化数据库..."));
    const search::SqlInterrupter::Hold hold(&m_interrupter, m_db.connection());
    QString error;
    if (!m_stop && !m_db.tidyUp(&error))
        qWarning().noquote() << "[IndexBuilder] vacuum failed:" << error;
}

bool IndexBuild::prune(const QStringList &roots, QString *message)
{
    QString error;
    if (!m_known->hasFiles() || search::pruneGoneFiles(&m_db, roots, m_options.storedPrefix,
                                                       m_options.exclusion, &m_met, m_stop, &error))
        return !cancelled(message);
    return fail(QStringLiteral("写入索引失败：%1"), error, message);
}

/// Of texts that an earlier version, or another program, has written.
bool IndexBuild::addMissingGrams(QString *message)
{
    QString error;
    for (bool left = true; left && !m_stop;) {
        if (!m_db.addMissingGrams(gramsPerStep, &left, &error))
            return fail(QStringLiteral("写入全文索引失败：%1"), error, message);
        if (left)
            report(QStringLiteral("正在更新全文索引..."));
    }
    return !cancelled(message);
}

/// Always false. Changes that cannot be committed for no other reason are a sign of damage too: the
/// full text index is read and merged only then.
bool IndexBuild::fail(const QString &what, const QString &error, QString *message)
{
    using search::IndexFailure;
    const bool commit = error == SearchIndexDB::commitFailed();
    const QString cause = commit ? m_db.commitError() : error;
    const IndexFailure failure = search::indexFailure(cause);
    QString text = search::indexFailureText(cause);
    if (commit && failure == IndexFailure::Other)
        text = QStringLiteral("更改无法保存，索引文件可能已损坏，请重新构建（%1）").arg(text);
    *message = what.arg(text);
    qWarning().noquote() << "[IndexBuilder] failed:" << error << cause;
    if (failure == IndexFailure::Damaged || (commit && failure == IndexFailure::Other))
        emit m_builder.indexDamaged();
    return false;
}

bool IndexBuild::cancelled(QString *message) const
{
    if (!m_stop)
        return false;
    *message = IndexBuilder::cancelledMessage();
    return true;
}

bool IndexBuild::scan(const QStringList &roots, QString *message)
{
    report(QStringLiteral("正在扫描文件系统..."));
    m_batch.reserve(filesPerBatch);
    m_batchPaths.reserve(filesPerBatch);
    // An excluded directory excludes all that lies in it, so it need not be read.
    const auto enters = [this](const QString &name, const QString &path, int) {
        return !m_options.exclusion.excludesEntry(name, path);
    };
    const auto takes = [this, message](const QString &name, const QString &path) {
        return takeFile(name, path, message);
    };
    FileWalker walker([this] { return !m_stop; }, enters, takes);
    for (const QString &root : roots) {
        if (!m_options.exclusion.excludes(root) && !walker.walk(root) && !m_stop)
            return false;
    }
    if (cancelled(message))
        return false;
    if (!m_batch.isEmpty() && !writeBatch(m_batch.constLast().filePath(), message))
        return false;
    return !cancelled(message);
}

/// False if a full batch could not be written. Lock files never come here: they are hidden.
bool IndexBuild::takeFile(const QString &name, const QString &path, QString *message)
{
    if (m_options.exclusion.excludesEntry(name, path))
        return true;
    // The one look at the file itself; size and time of the row come from it too.
    const QFileInfo info(path);
    if (!info.isFile())
        return true;
    ++m_indexed;
    const QString stored = m_builder.storedPathForRuntimePath(path);
    search::KnownFiles::Known known;
    if (m_known->hasFiles()) {
        m_met.add(stored);
        known = m_known->lookUp(stored, info);
    }
    if (m_options.ftsSuffixes.matches(name) && !known.hasText)
        m_extraction.addFile(path);
    if (known.isUnchanged) {
        if (m_indexed % filesPerBatch == 0)
            report(path);
        return true;
    }
    m_batch.append(info);
    m_batchPaths.append(stored);
    return m_batch.size() < filesPerBatch || writeBatch(path, message);
}

bool IndexBuild::writeBatch(const QString &lastPath, QString *message)
{
    QString error;
    if (!m_db.upsertFileInfoBatch(m_batch, m_batchPaths, &error))
        return fail(QStringLiteral("写入索引失败：%1"), error, message);
    report(lastPath);
    m_batch.clear();
    m_batchPaths.clear();
    return true;
}

bool IndexBuild::extractTexts(QString *message)
{
    const QStringList missing = missingToolLines();
    if (!missing.isEmpty())
        emit m_builder.toolsMissing(missing);

    const int total = m_extraction.fileCount();
    int processed = 0;
    const auto reportProcessed = [&] {
        report(QStringLiteral("正在提取文件内容（%1 / %2）...").arg(processed).arg(total));
    };
    reportProcessed();

    QThreadPool pool;
    pool.setMaxThreadCount(m_options.extractionThreads);
    for (int i = 0; i < total && !m_stop; ++i)
        pool.start(new ContentExtractTask(m_extraction));

    for (;;) {
        const bool done = pool.waitForDone(sliceMs);
        if (m_stop && !done)
            break;
        const QList<ExtractResult> slice = m_extraction.takeResults();
        if (slice.isEmpty()) {
            if (done)
                break;
            continue;
        }
        if (!writeTexts(slice, message)) {
            // Tools that still run are ended too; the next build clears the flag.
            m_stop = true;
            pool.clear();
            pool.waitForDone(poolGraceMs);
            return false;
        }
        processed += slice.size();
        reportProcessed();
    }
    if (!cancelled(message))
        return true;
    pool.clear();
    pool.waitForDone(poolGraceMs);
    return false;
}

bool IndexBuild::writeTexts(const QList<ExtractResult> &results, QString *message)
{
    QMap<QString, QString> contentByPath;
    QStringList cut;
    QStringList whole;
    for (const ExtractResult &result : results) {
        // A file that yields no text keeps its earlier one, unless there is nothing in it any more.
        if (result.text.isEmpty() && QFileInfo(result.runtimePath).size() != 0)
            continue;
        const QString path = m_builder.storedPathForRuntimePath(result.runtimePath);
        contentByPath.insert(path, result.text);
        (result.isCut ? cut : whole).append(path);
    }
    QString error;
    if (contentByPath.isEmpty())
        return true;
    if (m_db.updateFileContentBatch(contentByPath, &error) &&
        m_db.noteCutTexts(cut, true, &error) && m_db.noteCutTexts(whole, false, &error))
        return true;
    return fail(QStringLiteral("写入全文索引失败：%1"), error, message);
}

} // namespace

IndexBuilder::IndexBuilder(const QString &dbPath, QObject *parent)
    : QObject(parent)
    , m_dbPath(dbPath)
{}

void IndexBuilder::setStoredPathPrefix(const QString &prefix)
{
    m_storedPathPrefix = QDir::cleanPath(prefix.trimmed());
}

QString IndexBuilder::cancelledMessage()
{
    return QStringLiteral("索引构建已取消");
}

QString IndexBuilder::storedPathForRuntimePath(const QString &path) const
{
    return core::controllers::search::SearchPathResolver::pathBelowRoot(path, m_storedPathPrefix);
}

void IndexBuilder::removeDatabase()
{
    // Whoever ends the program right after asking for a rebuild keeps the index.
    if (QThread::currentThread()->isInterruptionRequested())
        return;
    const QString path = SearchIndexDB(m_dbPath).databasePath();
    for (const QLatin1String suffix :
         {QLatin1String(""), QLatin1String("-wal"), QLatin1String("-shm")}) {
        QFile file(path + suffix);
        if (!file.remove() && file.exists())
            qWarning().noquote() << "[IndexBuilder] cannot remove" << file.fileName() << ":"
                                 << file.errorString();
    }
}

void IndexBuilder::startBuild(const QStringList &roots, const QStringList &excludeDirs,
                              const QStringList &fileNameExtensions,
                              const QStringList &ftsExtensions, int maxContentBytes)
{
    Q_UNUSED(fileNameExtensions)
    // A stop that came before this build was for an earlier one, unless the whole thread is to end.
    m_stop = false;
    if (QThread::currentThread()->isInterruptionRequested())
        m_stop = true;
    QString message;
    bool success = false;
    {
        // The connection is closed before anybody hears of the end.
        IndexBuild build(
            *this, m_stop, m_interrupter,
            {m_dbPath, m_storedPathPrefix, PathExclusion(excludeDirs), SuffixSet(ftsExtensions),
             maxContentBytes,
             m_extractionThreads > 0 ? m_extractionThreads : defaultExtractionThreads()});
        success = build.run(roots, &message);
    }
    emit finished(success, message);
}

void IndexBuilder::requestStop()
{
    m_stop = true;
    m_interrupter.interrupt();
}
