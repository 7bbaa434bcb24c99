#include "report.h"

#include <QTextStream>

#include <algorithm>
#include <cmath>

void printReport(const QString &title, const QVector<ReportRow> &rows)
{
    QTextStream out(stdout);
    out << '\n' << title << '\n';
    const auto line = [&out](const QString &subject, const QString &ours, const QString &baseline,
                             const QString &ratio, const QString &target) {
        out << "  " << subject.leftJustified(46) << ours.rightJustified(14)
            << baseline.rightJustified(14) << ratio.rightJustified(9) << "  " << target << '\n';
    };
    line(QStringLiteral("subject"), QStringLiteral("ours"), QStringLiteral("baseline"),
         QStringLiteral("ratio"), QStringLiteral("target"));
    for (const ReportRow &row : rows) {
        line(row.subject, row.ours, row.baseline,
             row.ratio > 0 ? QString::number(row.ratio, 'f', 2) : QString(), row.target);
    }
}

QString milliseconds(double ms)
{
    return QString::number(ms, 'f', ms < 100 ? 2 : 0) + QLatin1String(" ms");
}

double median(QVector<double> values)
{
    return percentile(std::move(values), 0.5);
}

double percentile(QVector<double> values, double share)
{
    if (values.isEmpty())
        return 0.0;
    std::sort(values.begin(), values.end());
    const int rank = int(std::ceil(share * values.size())) - 1;
    return values.at(qBound(0, rank, values.size() - 1));
}
