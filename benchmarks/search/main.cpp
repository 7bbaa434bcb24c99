// The file index against raw baselines of the same run: building it and searching it.

#include "corpus.h"
#include "subjects.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QTextStream>

namespace {

bool readNumber(const QCommandLineParser &parser, const QString &name, int least, int *value)
{
    if (!parser.isSet(name))
        return true;
    bool ok = false;
    *value = parser.value(name).toInt(&ok);
    if (ok && *value >= least)
        return true;
    QTextStream(stderr) << "--" << name << ": a number from " << least << " on is needed\n";
    return false;
}

bool readOptions(BenchOptions *options)
{
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOptions(
        {{QStringLiteral("files"), QStringLiteral("Files to name."), QStringLiteral("N")},
         {QStringLiteral("dirs"), QStringLiteral("Directories they lie in."), QStringLiteral("N")},
         {QStringLiteral("docs"), QStringLiteral("Documents with text."), QStringLiteral("N")},
         {QStringLiteral("rounds"), QStringLiteral("Repetitions of a measurement."),
          QStringLiteral("N")},
         {QStringLiteral("lines-only"), QStringLiteral("Only lines, against the statements.")}});
    parser.process(*QCoreApplication::instance());
    options->linesOnly = parser.isSet(QStringLiteral("lines-only"));
    return readNumber(parser, QStringLiteral("files"), 1, &options->files) &&
           readNumber(parser, QStringLiteral("dirs"), 1, &options->directories) &&
           readNumber(parser, QStringLiteral("docs"), 0, &options->documents) &&
           readNumber(parser, QStringLiteral("rounds"), 1, &options->rounds);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    // The queries tell the debug log about every step.
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 4 && arguments.at(1) == QLatin1String("--builder"))
        return runBuilder(arguments.at(2), arguments.at(3));
    if (arguments.size() == 4 && arguments.at(1) == QLatin1String("--raw-insert"))
        return runRawInsert(arguments.at(2), arguments.at(3));

    BenchOptions options;
    if (!readOptions(&options))
        return 2;
    const QTemporaryDir work;
    options.workDir = work.path();
    QTextStream out(stdout);
    out << "search: " << options.files << " files and " << options.documents << " documents in "
        << options.directories << " directories\n";
    out.flush();
    QString error;
    if (!Corpus().writeTree(options.treeDir(), options.files + options.documents,
                            options.directories, &error)) {
        QTextStream(stderr) << error << '\n';
        return 1;
    }
    if (options.linesOnly)
        return makeIndex(options) && benchLineQueries(options) ? 0 : 1;
    const bool ok = benchBuild(options) && benchNameQueries(options) &&
                    benchContentQueries(options) && benchLineQueries(options);
    return ok ? 0 : 1;
}
