#pragma once

#include <QString>
#include <QVector>

/// What one subject measured against its baseline.
struct ReportRow
{
    QString subject;
    QString ours;
    QString baseline;
    double ratio = 0.0; // ours by baseline, or another figure that `target` limits; 0 for none
    QString target;     // empty where a row only informs
};

/// Prints the rows as one table to standard output.
void printReport(const QString &title, const QVector<ReportRow> &rows);

QString milliseconds(double ms);
double median(QVector<double> values);
/// The value below which `share` (0 to 1) of all lie.
double percentile(QVector<double> values, double share);
