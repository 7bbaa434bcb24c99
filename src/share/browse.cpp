#include "share/browse.h"

#include "share/directorylisting.h"
#include "share/download.h"
#include "share/escaping.h"
#include "share/filesharedb.h"
#include "share/pagetemplates.h"
#include "share/responses.h"
#include "share/shareexchange.h"
#include "share/sharepaths.h"
#include "share/sharetarget.h"
#include "share/upload.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>

namespace share {

namespace {

constexpr QLatin1Char kSlash('/');
constexpr int kRowSizeGuess = 256;

/// Where the links of a page begin: "/s/session/root/" and the directory's encoded path, ended with
/// a slash unless it is empty.
struct PageLinks
{
    PageLinks(const QString &sessionId, const QString &rootId, const QString &relativePath)
        : session(QStringLiteral("/s/") + sessionId + kSlash)
        , root(session + rootId + kSlash)
        , here(relativePath.isEmpty() ? root : root + encodedPath(relativePath) + kSlash)
        , relative(relativePath)
    {}

    QString above() const
    {
        const int slash = relative.lastIndexOf(kSlash);
        return slash < 0 ? root : root + encodedPath(relative.left(slash)) + kSlash;
    }

    QString session;
    QString root;
    QString here;
    QString relative; ///< Decoded and clean: without a slash at its end.
};

/// All of it is put together as bytes: a page may have very many rows. `link` is HTML.
void appendRow(QByteArray *rows, const QByteArray &link, const QByteArray &name,
               const ListedEntry &entry)
{
    static const PageTemplate &directoryRow = pageTemplate("directory-row");
    static const PageTemplate &fileRow = pageTemplate("file-row");
    const QByteArray shown = htmlEscaped(name);
    const QByteArray time = entry.exists ? minuteText(entry.modified) : QByteArray();
    if (entry.isDirectory)
        directoryRow.appendTo(rows, {{"link", link + '/'}, {"name", shown}, {"time", time}});
    else
        fileRow.appendTo(rows, {{"link", link},
                                {"name", shown},
                                {"size", formatFileSize(entry.size).toUtf8()},
                                {"time", time}});
}

QByteArray breadcrumb(const PageLinks &links, const QString &rootName)
{
    const PageTemplate &crumb = pageTemplate("crumb");
    QByteArray crumbs = pageTemplate("first-crumb")
                            .filled({{"link", links.session}, {"name", QStringLiteral("首页")}});
    crumb.appendTo(&crumbs, {{"link", links.root}, {"name", rootName}});
    QString walked;
    const QStringList segments = links.relative.split(kSlash);
    for (const QString &segment : segments) {
        if (segment.isEmpty())
            continue;
        walked += (walked.isEmpty() ? QString() : QString(kSlash)) + segment;
        crumb.appendTo(&crumbs,
                       {{"link", links.root + encodedPath(walked) + kSlash}, {"name", segment}});
    }
    return crumbs;
}

/// HTML all of it.
struct ListParts
{
    QByteArray header;
    QByteArray card;
    QByteArray rows;
    QByteArray footerNote;
    bool isEmpty = false;
};

void sendList(PeerSocket *socket, const QString &title, const ListParts &parts)
{
    const QByteArray body = pageTemplate("list").filled(
        {{"header", parts.header},
         {"card", parts.card},
         {"rows", parts.rows},
         {"empty", parts.isEmpty ? pageTemplate("empty").filled({}) : QByteArray()},
         {"footer-note", parts.footerNote}});
    sendResponse(socket, 200, QStringLiteral("OK"), page(title, body));
}

void sendNotFound(const ShareExchange &exchange, const QString &message)
{
    sendError(exchange.socket, 404, QStringLiteral("未找到"), message);
}

void sendForbidden(const ShareExchange &exchange)
{
    sendError(exchange.socket, 403, QStringLiteral("禁止访问"), QStringLiteral("拒绝访问。"));
}

void serveDirectory(const ShareExchange &exchange, const ShareSession &session,
                    const ShareRoot &root, const ShareTarget &target, const QString &logged)
{
    exchange.log(QStringLiteral("browse"), root.id + kSlash + logged);
    QVector<ListedEntry> entries;
    if (!listDirectory(target.entry, &entries)) {
        sendForbidden(exchange);
        return;
    }
    const PageLinks links(exchange.sessionId, root.id, target.path);
    ListParts parts;
    parts.isEmpty = entries.isEmpty();
    parts.rows.reserve(entries.size() * kRowSizeGuess);
    if (!links.relative.isEmpty())
        pageTemplate("up-row").appendTo(&parts.rows, {{"link", links.above()}});
    const QByteArray here = htmlEscaped(links.here);
    for (const ListedEntry &entry : qAsConst(entries)) {
        const QByteArray name = entry.name.toUtf8();
        appendRow(&parts.rows, here + encodedPath(name), name, entry);
    }
    if (session.takesUploads())
        parts.card = uploadCard(exchange.sessionId, root.id, target.path,
                                QDir::cleanPath(joinedPath(root.localPath, target.path)));
    parts.header =
        pageTemplate("directory-header").filled({{"crumbs", breadcrumb(links, root.displayName)}});
    sendList(exchange.socket, root.displayName, parts);
}

} // namespace

QString remainingText(qint64 expiresAt, qint64 now)
{
    if (expiresAt <= 0 || expiresAt <= now)
        return QString();
    const qint64 seconds = (expiresAt - now) / 1000;
    const auto twoDigits = [](qint64 value) {
        return QString::number(value).rightJustified(2, QLatin1Char('0'));
    };
    return twoDigits(seconds / 3600) + QLatin1Char(':') + twoDigits(seconds / 60 % 60) +
           QLatin1Char(':') + twoDigits(seconds % 60);
}

void serveRootList(const ShareExchange &exchange, const ShareSession &session)
{
    const PageLinks links(exchange.sessionId, QString(), QString());
    ListParts parts;
    const QList<ShareRoot> roots =
        FileShareDb::queryRootsForSession(exchange.database, exchange.sessionId);
    for (const ShareRoot &root : roots) {
        appendRow(&parts.rows, htmlEscaped(links.session + root.id), root.displayName.toUtf8(),
                  entryAt(root.localPath));
    }
    QByteArray remain;
    const QString remaining = remainingText(session.expiresAt, QDateTime::currentMSecsSinceEpoch());
    if (!remaining.isEmpty()) {
        const QString mode =
            session.takesUploads() ? QStringLiteral("允许上传") : QStringLiteral("仅下载");
        remain = pageTemplate("remain").filled({{"time", remaining}});
        parts.footerNote = pageTemplate("footer-note").filled({{"mode", mode}});
    }
    parts.header = pageTemplate("root-header").filled({{"remain", remain}});
    sendList(exchange.socket, QStringLiteral("文件分享"), parts);
}

void serveBrowse(const ShareExchange &exchange, const ShareSession &session, const QString &rootId,
                 const QString &relativePath)
{
    const ShareRoot root = FileShareDb::queryRootById(exchange.database, rootId);
    if (root.id.isEmpty() || root.sessionId != exchange.sessionId) {
        sendNotFound(exchange, QStringLiteral("未找到资源。"));
        return;
    }
    const SharedEntry top = SharedEntry::root(root.localPath);
    if (top.isFile() && relativePath.isEmpty()) {
        serveFileDownload(exchange, top, QFileInfo(root.localPath).fileName());
        return;
    }
    if (!top.isDirectory()) {
        sendNotFound(exchange, QStringLiteral("未找到资源。"));
        return;
    }
    const ShareTarget target = findTarget(top, root, relativePath);
    // Pipes, sockets and devices are neither, and never opened.
    if (target.entry.isDirectory())
        serveDirectory(exchange, session, root, target, percentDecode(relativePath));
    else if (target.entry.isFile())
        serveFileDownload(exchange, target.entry, QFileInfo(target.path).fileName());
    else if (target.isFound() || target.isHidden)
        sendNotFound(exchange, QStringLiteral("未找到文件。"));
    else
        sendForbidden(exchange);
}

} // namespace share
