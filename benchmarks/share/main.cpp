#include "search/report.h"
#include "share/peers.h"
#include "share/plainserver.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QStorageInfo>
#include <QTemporaryDir>

#include <algorithm>
#include <functional>
#include <unistd.h>

/// The share server against nginx, plain loops and Python's server, each in a process of its own,
/// over loopback and with all files in the cache. The best of five rounds in which all take turns.

namespace {

constexpr int kRounds = 5;
constexpr qint64 kMiB = 1 << 20;
constexpr qint64 kGiB = 1 << 30;
constexpr int kUploadMiB = 256;
constexpr int kPages = 100;
constexpr int kMemoryRounds = 10;
constexpr int kManyClients = 4;

struct Subject
{
    QString name;
    std::function<double()> run; ///< Seconds.
    double best = 0;
};

void measure(QVector<Subject> *subjects)
{
    for (Subject &subject : *subjects)
        subject.run();
    for (int round = 0; round < kRounds; ++round) {
        for (Subject &subject : *subjects) {
            const double seconds = subject.run();
            if (round == 0 || seconds < subject.best)
                subject.best = seconds;
        }
    }
}

/// The first subject against each of the others.
void addRows(const QString &what, const QVector<Subject> &subjects, const QStringList &targets,
             QVector<ReportRow> *rows)
{
    for (int i = 1; i < subjects.size(); ++i) {
        ReportRow row;
        row.subject = what + QStringLiteral(", by ") + subjects.at(i).name;
        row.ours = milliseconds(subjects.first().best * 1000);
        row.baseline = milliseconds(subjects.at(i).best * 1000);
        row.ratio = subjects.at(i).best / subjects.first().best;
        row.target = QStringLiteral("at least ") + targets.value(i - 1);
        rows->append(row);
    }
}

QByteArray get(const QByteArray &path)
{
    return "GET " + path + " HTTP/1.0\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
}

void writeFile(const QString &path, qint64 size)
{
    QFile file(path);
    QByteArray piece(int(qMin(size, kMiB)), Qt::Uninitialized);
    for (int i = 0; i < piece.size(); ++i)
        piece[i] = char(i * 31 / 7);
    if (!file.open(QIODevice::WriteOnly))
        qFatal("cannot write %s", qPrintable(path));
    for (qint64 at = 0; at < size; at += piece.size())
        file.write(piece);
}

void writeEntries(const QString &directory, int count)
{
    QDir().mkpath(directory);
    for (int i = 0; i < count; ++i)
        writeFile(directory + QStringLiteral("/document number %1.txt").arg(i), 100);
}

std::unique_ptr<ServerProcess> nginx(const QString &root, const QString &state, bool sendfile)
{
    const QString program =
        QStandardPaths::findExecutable(QStringLiteral("nginx"), {QStringLiteral("/usr/sbin")});
    if (program.isEmpty())
        return nullptr;
    const int port = unusedPort();
    QDir().mkpath(state);
    QFile file(state + QStringLiteral("/nginx.conf"));
    if (!file.open(QIODevice::WriteOnly))
        return nullptr;
    // Only root may, and has to, say whom the worker is to be: the files are its own.
    file.write(::getuid() == 0 ? "user root;\n" : "");
    file.write(QStringLiteral("daemon off; worker_processes 1; pid %1/pid; error_log /dev/null;\n"
                              "events {}\n"
                              "http { access_log off; keepalive_timeout 0; sendfile %2;\n"
                              "  client_body_temp_path %1/body; proxy_temp_path %1/proxy;\n"
                              "  fastcgi_temp_path %1/fastcgi; uwsgi_temp_path %1/uwsgi;\n"
                              "  scgi_temp_path %1/scgi;\n"
                              "  server { listen 127.0.0.1:%3; root %4; } }\n")
                   .arg(state, sendfile ? QStringLiteral("on") : QStringLiteral("off"))
                   .arg(port)
                   .arg(root)
                   .toUtf8());
    file.close();
    return ServerProcess::foreign(
        program, {QStringLiteral("-p"), state, QStringLiteral("-c"), file.fileName()}, port);
}

struct Places
{
    QString files;
    QString state; ///< Of the servers.
};

std::unique_ptr<ServerProcess> share(const Places &places, const QString &directory)
{
    static int number = 0;
    return ServerProcess::own({QStringLiteral("--share"), directory,
                               places.state + QStringLiteral("/%1.db").arg(++number)});
}

void measureDownloads(const Places &places, QVector<ReportRow> *rows)
{
    const auto ours = share(places, places.files);
    const auto plain = ServerProcess::own({QStringLiteral("--plain"), places.files});
    const auto withSendfile = nginx(places.files, places.state + QStringLiteral("/on"), true);
    const auto without = nginx(places.files, places.state + QStringLiteral("/off"), false);
    const QByteArray shared = get("/s/s/r/gib");
    const QByteArray bare = get("/gib");
    for (const int clients : {1, kManyClients}) {
        const auto by = [clients](ServerProcess *server, const QByteArray &head) {
            return [=] {
                return timedRequests(clients, server->port(), head, kGiB);
            };
        };
        QVector<Subject> subjects{{QStringLiteral("ours"), by(ours.get(), shared)}};
        QStringList targets;
        const QString least = clients == 1 ? QStringLiteral("0.8") : QStringLiteral("0.7");
        if (withSendfile && without) {
            subjects.append({QStringLiteral("nginx, sendfile"), by(withSendfile.get(), bare)});
            subjects.append({QStringLiteral("nginx"), by(without.get(), bare)});
            targets << least << least;
        }
        subjects.append({QStringLiteral("a plain loop"), by(plain.get(), bare)});
        targets << (clients == 1 ? QStringLiteral("0.9") : least);
        measure(&subjects);
        addRows(QStringLiteral("1 GiB to %1").arg(clients), subjects, targets, rows);
    }

    const qint64 before = ours->residentKiB();
    qint64 most = before;
    for (int i = 0; i < kMemoryRounds; ++i) {
        timedRequest(ours->port(), shared, kGiB);
        most = std::max(most, ours->residentKiB());
    }
    ReportRow row;
    row.subject = QStringLiteral("memory over 10 GiB, growth in MiB");
    row.ours = QStringLiteral("%1 KiB").arg(most);
    row.baseline = QStringLiteral("%1 KiB").arg(before);
    row.ratio = double(most - before) / 1024;
    row.target = QStringLiteral("at most 8");
    rows->append(row);
}

void measurePages(const Places &places, QVector<ReportRow> *rows)
{
    const auto ours = share(places, places.files);
    const int port = unusedPort();
    const auto python = ServerProcess::foreign(QStringLiteral("python3"),
                                               {QStringLiteral("-m"), QStringLiteral("http.server"),
                                                QString::number(port), QStringLiteral("--bind"),
                                                QStringLiteral("127.0.0.1"),
                                                QStringLiteral("--directory"), places.files},
                                               port);
    for (const int entries : {20, 1000}) {
        const QByteArray name = QByteArray::number(entries);
        const auto by = [entries](ServerProcess *server, const QByteArray &head) {
            return [=] {
                double seconds = 0;
                for (int i = 0; i < kPages; ++i)
                    seconds += timedRequest(server->port(), head, entries * 30);
                return seconds;
            };
        };
        QVector<Subject> subjects{
            {QStringLiteral("ours"), by(ours.get(), get("/s/s/r/" + name + '/'))},
            {QStringLiteral("http.server"), by(python.get(), get('/' + name + '/'))}};
        measure(&subjects);
        addRows(QStringLiteral("%1 pages of %2").arg(kPages).arg(entries), subjects,
                {entries == 20 ? QStringLiteral("4") : QStringLiteral("3")}, rows);
    }
}

void measureUploads(const Places &places, const QString &target, const QString &where,
                    QVector<ReportRow> *rows)
{
    const auto ours = share(places, target);
    const auto plain = ServerProcess::own({QStringLiteral("--plain"), target});
    const QByteArray piece(int(kMiB), 'u');
    const QByteArray length =
        " HTTP/1.1\r\nContent-Length: " + QByteArray::number(kUploadMiB * kMiB) + "\r\n";
    const auto by = [&](ServerProcess *server, const QByteArray &head) {
        return [=] {
            return timedRequest(server->port(), head + "\r\n", 1, piece, kUploadMiB);
        };
    };
    QVector<Subject> subjects{
        {QStringLiteral("ours"),
         by(ours.get(), "PUT /s/s/upload/r" + length + "X-Overwrite: 1\r\nX-File-Name: ours\r\n")},
        {QStringLiteral("a plain loop"), by(plain.get(), "PUT /plain" + length)}};
    measure(&subjects);
    addRows(QStringLiteral("%1 MiB up to %2").arg(kUploadMiB).arg(where), subjects,
            {QStringLiteral("0.7")}, rows);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == QLatin1String("--share"))
        return runShareServer(arguments.value(2), arguments.value(3));
    if (arguments.value(1) == QLatin1String("--plain"))
        return runPlainServer(arguments.value(2));

    const QTemporaryDir dir;
    const Places places{dir.filePath(QStringLiteral("files")),
                        dir.filePath(QStringLiteral("state"))};
    QDir().mkpath(places.state);
    writeEntries(places.files + QStringLiteral("/20"), 20);
    writeEntries(places.files + QStringLiteral("/1000"), 1000);
    writeFile(places.files + QStringLiteral("/gib"), kGiB);
    QDir().mkpath(places.files + QStringLiteral("/up"));

    QVector<ReportRow> rows;
    measureDownloads(places, &rows);
    measurePages(places, &rows);
    // In memory what is measured is the server, on a disk mostly the disk.
    const QTemporaryDir memory(QStringLiteral("/dev/shm/morvane-bench-XXXXXX"));
    if (memory.isValid() && QStorageInfo(memory.path()).bytesAvailable() > 2 * kGiB)
        measureUploads(places, memory.path(), QStringLiteral("memory"), &rows);
    measureUploads(places, places.files + QStringLiteral("/up"), QStringLiteral("disk"), &rows);
    printReport(QStringLiteral("The share server's speed, by that of others (best of five)"), rows);
    return 0;
}
