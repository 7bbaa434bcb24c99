#include "cli/arguments.h"
#include "cli/commands.h"
#include "cli/stopsignal.h"
#include "core/controllers/search/searchpathresolver.h"
#include "core/pathutil.h"
#include "core/privatefile.h"
#include "search/indexbuilder.h"
#include "search/names/namesearch.h"
#include "search/query/contentsearch.h"
#include "search/resultcheck.h"
#include "search/searchindexdb.h"
#include "search/searchsettings.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>

namespace cli {
namespace {

using core::controllers::search::SearchPathResolver;

constexpr int defaultLimit = 200;

/// The user's own index, as the program has it.
struct OwnIndex
{
    searchsettings::Paths paths = SearchPathResolver::resolve(core::AppMode::normal);
    SearchSettings settings = searchsettings::load(paths);
    QString database = searchsettings::activeDbPath(paths);

    QStringList roots() const
    {
        return settings.roots.isEmpty() ? searchsettings::defaults(paths).roots : settings.roots;
    }
};

bool neverCancelled()
{
    return false;
}

QString plainSnippet(QString snippet)
{
    snippet.remove(QLatin1String("<b>")).remove(QLatin1String("</b>"));
    return snippet.simplified();
}

using Search = std::function<QVariantList(const QSqlDatabase &database, const QString &line,
                                          int limit, QString *error)>;

int runQuery(Arguments *arguments, const QStringList &list, const Search &search)
{
    arguments->add({{QStringLiteral("n"), QStringLiteral("limit")},
                    QStringLiteral("最多输出的结果数，默认 %1").arg(defaultLimit),
                    QStringLiteral("N")});
    int exitCode = Success;
    if (!arguments->parse(list, 1, &exitCode))
        return exitCode;
    const qint64 limit = arguments->number(QStringLiteral("limit"), defaultLimit);
    if (limit < 1 || limit > 1000000)
        return wrongUsage(QStringLiteral("--limit 需要一个大于 0 的数"));
    Output output(arguments->format());
    const OwnIndex index;
    if (!QFileInfo::exists(index.database)) {
        output.error(QStringLiteral("还没有索引；请先运行 morvane-cli index"));
        return Failed;
    }
    SearchIndexDB db(index.database);
    QString error;
    QVariantList rows;
    if (db.open(&error)) {
        const QString line = arguments->words().join(QLatin1Char(' '));
        rows = search::ResultCheck(index.roots(), QString()).filled(int(limit), [&](int wanted) {
            return search(db.connection(), line, wanted, &error);
        });
    }
    for (const QVariant &row : qAsConst(rows)) {
        const QVariantMap map = row.toMap();
        const QString path = map.value(QStringLiteral("path")).toString();
        const QString snippet = plainSnippet(map.value(QStringLiteral("snippet")).toString());
        output.row(QJsonObject::fromVariantMap(map), path,
                   snippet.isEmpty() ? path : path + QLatin1String(": ") + snippet);
    }
    if (!error.isEmpty()) {
        output.error(error);
        return Failed;
    }
    return rows.isEmpty() ? NothingFound : Success;
}

} // namespace

int runIndex(const QStringList &list)
{
    Arguments arguments(QStringLiteral("index"),
                        QStringLiteral("建立或刷新文件索引；不带目录时按索引设置进行"),
                        QStringLiteral("[目录...]"));
    arguments.add({QStringLiteral("rebuild"), QStringLiteral("从头重建，而不是刷新")});
    int exitCode = Success;
    if (!arguments.parse(list, 0, &exitCode))
        return exitCode;
    Output output(arguments.format());
    const OwnIndex index;
    QStringList roots;
    for (const QString &word : arguments.words()) {
        if (!QFileInfo(word).isDir())
            return wrongUsage(QStringLiteral("不是目录：%1").arg(word));
        roots.append(QDir::cleanPath(QFileInfo(word).absoluteFilePath()));
    }
    if (roots.isEmpty())
        roots = index.roots();
    (void)core::makePrivateDirectory(QFileInfo(index.database).absolutePath());

    IndexBuilder builder(index.database);
    const StopSignal stop([&builder] { builder.requestStop(); });
    int files = 0;
    bool ok = false;
    QString message;
    QObject::connect(&builder, &IndexBuilder::progressChanged, &builder,
                     [&](int count, const QString &text) {
                         files = count;
                         output.progress(QStringLiteral("%1 %2").arg(count).arg(text));
                     });
    QObject::connect(&builder, &IndexBuilder::finished, &builder,
                     [&](bool success, const QString &text) {
                         ok = success;
                         message = text;
                     });
    if (arguments.has(QStringLiteral("rebuild")))
        builder.removeDatabase();
    builder.startBuild(roots, searchsettings::effectiveExcludeDirs(index.paths, index.settings),
                       QStringList(), searchsettings::contentExtensions(index.settings),
                       index.settings.indexedTextBytes);
    if (!ok) {
        output.error(message);
        return stop.hasCome() ? Stopped : Failed;
    }
    output.row({{QStringLiteral("files"), files},
                {QStringLiteral("roots"), QJsonArray::fromStringList(roots)}},
               QString(), message);
    return Success;
}

int runSearch(const QStringList &list)
{
    Arguments arguments(QStringLiteral("search"),
                        QStringLiteral("按文件名查找；写法与程序里的搜索框相同"),
                        QStringLiteral("词..."));
    return runQuery(
        &arguments, list,
        [](const QSqlDatabase &database, const QString &line, int limit, QString *error) {
            search::names::NameIndex names(database.databaseName(), [] {});
            names.waitForRows(database);
            return search::names::searchNames(database, &names, line, limit, QString(),
                                              neverCancelled, error);
        });
}

int runGrep(const QStringList &list)
{
    Arguments arguments(QStringLiteral("grep"),
                        QStringLiteral("按文件内容查找；写法与程序里的搜索框相同"),
                        QStringLiteral("词..."));
    return runQuery(
        &arguments, list,
        [](const QSqlDatabase &database, const QString &line, int limit, QString *error) {
            return search::query::searchContents(database, line, limit, QString(), neverCancelled,
                                                 error);
        });
}

} // namespace cli
