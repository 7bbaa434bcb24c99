#include "recoveryd/session/oldresults.h"

#include "common/jsonfile.h"
#include "core/jsonnumber.h"
#include "recoveryd/session/resultlog.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

#include <algorithm>
#include <cstdio>

namespace services::recoveryd {

namespace {

/// Only carved files were found then, and how sure they were is told by their grade.
Evidence evidenceOf(const QString &probabilityKey)
{
    if (probabilityKey == QLatin1String("excellent"))
        return Evidence::Container;
    if (probabilityKey == QLatin1String("good"))
        return Evidence::End;
    return probabilityKey == QLatin1String("fair") ? Evidence::Structure : Evidence::Header;
}

bool readOld(const QJsonObject &object, int *number, Finding *finding)
{
    *number = numberOf(object.value(QLatin1String("fileId")).toString());
    finding->source = FindingSource::Carving;
    finding->type = object.value(QLatin1String("type")).toString();
    finding->extension = QFileInfo(object.value(QLatin1String("name")).toString()).suffix();
    finding->evidence = evidenceOf(object.value(QLatin1String("probabilityKey")).toString());
    const QJsonArray ranges = object.value(QLatin1String("ranges")).toArray();
    qint64 logical = 0;
    for (int i = 0; i + 1 < ranges.size(); i += 2) {
        const qint64 start = core::toInt64(ranges.at(i));
        const qint64 length = core::toInt64(ranges.at(i + 1));
        if (start < 0 || length <= 0)
            return false;
        finding->content.append(logical, start, length);
        logical += length;
    }
    finding->content.size = core::toInt64(object.value(QLatin1String("sizeBytes")));
    return *number > 0 && logical > 0 && logical == finding->content.size;
}

} // namespace

bool convertOldResults(const QString &resultsPath, QString *error)
{
    const QString oldPath = QFileInfo(resultsPath).path() + QStringLiteral("/files.json");
    if (!QFile::exists(oldPath))
        return true;
    QJsonObject old;
    if (!readJson(oldPath, &old, error))
        return false;
    std::vector<std::pair<int, Finding>> files;
    const QJsonArray stored = old.value(QLatin1String("files")).toArray();
    for (const QJsonValue &value : stored) {
        int number = 0;
        Finding finding;
        if (readOld(value.toObject(), &number, &finding) && number <= stored.size())
            files.emplace_back(number, finding);
    }
    std::sort(files.begin(), files.end(),
              [](const auto &a, const auto &b) { return a.first < b.first; });

    const QString temporary = resultsPath + QStringLiteral(".new");
    QFile::remove(temporary);
    {
        ResultLog log;
        if (!log.openForAppending(temporary, error))
            return false;
        for (const auto &file : files) {
            // Ids stay what they were, so numbers that are missing are given and dropped.
            while (log.lastNumber() < file.first - 1)
                log.drop(log.append(Finding(), Damage()));
            if (log.lastNumber() < file.first)
                log.append(file.second, Damage());
        }
        if (!log.flush(true, error))
            return false;
    }
    if (std::rename(QFile::encodeName(temporary).constData(),
                    QFile::encodeName(resultsPath).constData()) != 0) {
        if (error)
            *error = QStringLiteral("无法写入 %1").arg(resultsPath);
        return false;
    }
    QFile::remove(oldPath);
    return true;
}

} // namespace services::recoveryd
