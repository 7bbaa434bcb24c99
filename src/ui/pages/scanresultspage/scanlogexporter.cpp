#include "ui/pages/scanresultspage/scanlogexporter.h"

#include <QDir>
#include <QFutureWatcher>
#include <QSaveFile>
#include <QtConcurrentRun>

namespace utils = ui::common::utils;

namespace scanresults {

namespace {

/// The error, or an empty text.
QString writeLog(const QString &path, const utils::ScanLog &log)
{
    QSaveFile file(path);
    const QByteArray text = utils::scanLogText(log).toUtf8();
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.flush() ||
        !file.commit())
        return file.errorString();
    return QString();
}

} // namespace

ScanLogExporter::ScanLogExporter(QObject *parent)
    : QObject(parent)
{}

void ScanLogExporter::write(const QString &directory, const utils::ScanLog &log)
{
    if (m_busy)
        return;
    m_busy = true;
    const QString path = QDir(directory).filePath(utils::scanLogFileName(log));
    auto *watcher = new QFutureWatcher<QString>(this);
    connect(watcher, &QFutureWatcher<QString>::finished, this, [this, watcher, path] {
        watcher->deleteLater();
        m_busy = false;
        emit finished(path, watcher->result());
    });
    watcher->setFuture(QtConcurrent::run([path, log] { return writeLog(path, log); }));
}

} // namespace scanresults
