#pragma once

#include <QString>

/// Sizes of the corpus and where it is made.
struct BenchOptions
{
    int files = 200000;
    int directories = 4000;
    int documents = 20000;
    int rounds = 3; // of each measurement; the median counts
    bool linesOnly = false;
    QString workDir;

    QString treeDir() const { return workDir + QLatin1String("/tree"); }
    QString indexPath() const { return workDir + QLatin1String("/index.db"); }
};

/// The subjects, in this order: the queries search the index that the first one leaves behind.
/// Each prints a table of its own and returns false, after a message, if it could not be run.
bool benchBuild(const BenchOptions &options);
bool benchNameQueries(const BenchOptions &options);
bool benchContentQueries(const BenchOptions &options);
bool benchLineQueries(const BenchOptions &options);
/// The index that the queries need, built once and unmeasured.
bool makeIndex(const BenchOptions &options);

/// One build of the name index in this process: the real builder, or the rows of `source` inserted
/// through SQLite's C interface. Prints milliseconds and the peak of resident memory in KiB.
int runBuilder(const QString &tree, const QString &database);
int runRawInsert(const QString &source, const QString &database);
