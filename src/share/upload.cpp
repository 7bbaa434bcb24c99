#include "share/upload.h"

#include "share/escaping.h"
#include "share/filesharedb.h"
#include "share/httprequest.h"
#include "share/pagetemplates.h"
#include "share/responses.h"
#include "share/shareexchange.h"
#include "share/sharepaths.h"
#include "share/sharetarget.h"
#include "share/uploadtarget.h"
#include "share/uploadtransfer.h"

#include <QFile>

#include <utility>

namespace share {

namespace {

/// The answer to a request that is not carried out.
struct Refusal
{
    int code = 0; ///< 0: none.
    const char *statusText = "";
    QString message;
    const char *logDetail = ""; ///< While the target is not known.
    const char *logAction = "upload_fail";
};

/// The directory of a request, held open.
struct UploadPlace
{
    SharedEntry directory;
    QString path; ///< Below its root.
    bool takesHiddenNames = false;
};

QString permissionMessage()
{
    return QStringLiteral("当前共享未开启上传权限。");
}

QString outsideMessage()
{
    return QStringLiteral("目标目录超出共享范围。");
}

QString nameMessage()
{
    return QStringLiteral("文件名无效。");
}

QString directoryTakenMessage()
{
    return QStringLiteral("当前目录中已有同名文件夹，无法覆盖。");
}

Refusal badPath()
{
    return {400, "Bad Request", QStringLiteral("上传目录参数无效。"), "invalid_path"};
}

/// Of a name that may be used in this place, none.
Refusal hiddenRefusal(const UploadPlace &place, const QString &name)
{
    if (!isHiddenName(name) || place.takesHiddenNames)
        return {};
    return {404, "Not Found", QStringLiteral("不能上传以“.”开头的隐藏文件。"), "hidden_name"};
}

/// The directory that the text behind the prefix names, if it belongs to the session.
Refusal findPlace(const ShareExchange &exchange, const QString &rootId, const QString &relativePath,
                  UploadPlace *place)
{
    const Refusal missing{404, "Not Found", QStringLiteral("目标目录不存在。"), "dir_not_found"};
    const ShareRoot root = FileShareDb::queryRootById(exchange.database, rootId);
    if (root.id.isEmpty() || root.sessionId != exchange.sessionId)
        return {404, "Not Found", QStringLiteral("未找到共享目录。"), "root_not_found"};
    const SharedEntry top = SharedEntry::root(root.localPath);
    if (!top.isDirectory())
        return {400, "Bad Request", QStringLiteral("当前共享项不是目录，无法上传。"),
                "root_not_dir"};
    ShareTarget target = findTarget(top, root, relativePath);
    if (target.isHidden)
        return missing;
    if (!target.isFound())
        return {403, "Forbidden", outsideMessage(), "path_forbidden"};
    if (!target.entry.isDirectory())
        return missing;
    *place = {std::move(target.entry), target.path, servesHiddenNames(root)};
    return {};
}

void refuseMethod(const ShareExchange &exchange, const QString &allowed)
{
    sendJsonFailure(exchange.socket, 405, QStringLiteral("Method Not Allowed"),
                    QStringLiteral("不支持的请求方法。"), {{QStringLiteral("Allow"), allowed}});
}

void answer(const ShareExchange &exchange, const Refusal &refusal)
{
    sendJsonFailure(exchange.socket, refusal.code, QLatin1String(refusal.statusText),
                    refusal.message);
}

Refusal checkRefusal(const ShareExchange &exchange, const ShareSession &session,
                     const QString &name, UploadPlace *place)
{
    if (!session.takesUploads())
        return {403, "Forbidden", permissionMessage()};
    QString rootId;
    QString relativePath;
    if (!splitRootAndRelativePath(exchange.subPath.mid(uploadCheckPrefix().size()), &rootId,
                                  &relativePath))
        return badPath();
    if (!isValidUploadFileName(name))
        return {400, "Bad Request", nameMessage()};
    const Refusal refusal = findPlace(exchange, rootId, relativePath, place);
    return refusal.code != 0 ? refusal : hiddenRefusal(*place, name);
}

/// Everything that can be said against an upload before its target is known.
Refusal putRefusal(const ShareExchange &exchange, const ShareSession &session, UploadPlace *place,
                   QString *name)
{
    const HttpRequest &request = *exchange.request;
    if (!session.takesUploads())
        return {403, "Forbidden", permissionMessage(), "permission_denied"};
    if (request.headers.value(QStringLiteral("transfer-encoding"))
            .toLower()
            .contains(QLatin1String("chunked")))
        return {400, "Bad Request", QStringLiteral("暂不支持分块上传。"), "chunked_upload"};
    if (request.contentLength < 0)
        return {411, "Length Required", QStringLiteral("缺少有效的 Content-Length。"),
                "missing_length"};
    QString rootId;
    QString relativePath;
    if (!splitRootAndRelativePath(exchange.subPath.mid(uploadPrefix().size()), &rootId,
                                  &relativePath))
        return badPath();
    const Refusal refusal = findPlace(exchange, rootId, relativePath, place);
    if (refusal.code != 0)
        return refusal;
    *name = percentDecode(request.headers.value(QStringLiteral("x-file-name")).trimmed());
    if (!isValidUploadFileName(*name))
        return {400, "Bad Request", nameMessage(), "invalid_file_name"};
    return hiddenRefusal(*place, *name);
}

/// What speaks against this target.
Refusal targetRefusal(const HttpRequest &request, const UploadTarget &target, int directory)
{
    const bool mayOverwrite =
        request.headers.value(QStringLiteral("x-overwrite")) == QLatin1String("1");
    if (target.kind == UploadTarget::Kind::Directory)
        return {409, "Conflict", directoryTakenMessage(), "", "upload_conflict"};
    if (target.isTaken() && !mayOverwrite)
        return {409, "Conflict", QStringLiteral("当前目录已存在同名文件，请确认是否覆盖。"), "",
                "upload_conflict"};
    // Writing through a link would change a file elsewhere.
    if (target.isLink)
        return {403, "Forbidden", outsideMessage()};
    if (target.kind == UploadTarget::Kind::Special)
        return {500, "Internal Server Error", QStringLiteral("无法写入目标文件。")};
    if (!hasRoomFor(directory, request.contentLength))
        return {507, "Insufficient Storage",
                QStringLiteral("目标磁盘剩余空间不足，无法完成上传。")};
    return {};
}

QString logicalPath(const QString &directory, const QString &name)
{
    return directory.isEmpty() ? name : joinedPath(directory, name);
}

} // namespace

QString uploadCheckPrefix()
{
    return QStringLiteral("api/upload-check/");
}

QString uploadPrefix()
{
    return QStringLiteral("upload/");
}

void handleUploadCheck(const ShareExchange &exchange, const ShareSession &session)
{
    if (exchange.request->method != QLatin1String("GET")) {
        refuseMethod(exchange, QStringLiteral("GET"));
        return;
    }
    const QString name = exchange.request->queryParams.value(QStringLiteral("name")).trimmed();
    UploadPlace place;
    Refusal refusal = checkRefusal(exchange, session, name, &place);
    UploadTarget target;
    if (refusal.code == 0) {
        target = uploadTargetAt(place.directory.descriptor(), QFile::encodeName(name));
        if (target.kind == UploadTarget::Kind::Directory)
            refusal = {409, "Conflict", directoryTakenMessage()};
        else if (target.isLink) // it tells nothing about a file elsewhere either
            refusal = {403, "Forbidden", outsideMessage()};
    }
    if (refusal.code != 0) {
        answer(exchange, refusal);
        return;
    }
    sendJson(exchange.socket, 200, QStringLiteral("OK"),
             {{QStringLiteral("ok"), true},
              {QStringLiteral("exists"), target.isTaken()},
              {QStringLiteral("isDirectory"), false},
              {QStringLiteral("size"), target.size},
              {QStringLiteral("lastModified"), target.modifiedMs}});
}

void handleUploadPut(const ShareExchange &exchange, const ShareSession &session)
{
    if (exchange.request->method != QLatin1String("PUT")) {
        refuseMethod(exchange, QStringLiteral("PUT"));
        return;
    }
    UploadPlace place;
    QString name;
    Refusal refusal = putRefusal(exchange, session, &place, &name);
    if (refusal.code != 0) {
        exchange.log(QLatin1String(refusal.logAction), QLatin1String(refusal.logDetail));
        answer(exchange, refusal);
        return;
    }
    const QString detail = logicalPath(place.path, name);
    const int directory = place.directory.descriptor();
    const QByteArray nativeName = QFile::encodeName(name);
    const UploadTarget target = uploadTargetAt(directory, nativeName);
    refusal = targetRefusal(*exchange.request, target, directory);
    if (refusal.code != 0) {
        exchange.log(QLatin1String(refusal.logAction), detail);
        answer(exchange, refusal);
        return;
    }
    const TransferResult result = receiveFile(exchange, directory, nativeName, target);
    if (result.code != 0) {
        exchange.log(QStringLiteral("upload_fail"), detail);
        sendJsonFailure(exchange.socket, result.code, result.statusText, result.message);
        return;
    }
    const bool overwritten = target.kind == UploadTarget::Kind::File;
    exchange.log(QStringLiteral("upload_ok"), detail);
    sendJson(exchange.socket, overwritten ? 200 : 201,
             overwritten ? QStringLiteral("OK") : QStringLiteral("Created"),
             {{QStringLiteral("ok"), true},
              {QStringLiteral("overwritten"), overwritten},
              {QStringLiteral("fileName"), name},
              {QStringLiteral("message"),
               overwritten ? QStringLiteral("文件已覆盖") : QStringLiteral("上传成功")}});
}

QByteArray uploadCard(const QString &sessionId, const QString &rootId, const QString &relativePath,
                      const QString &localPath)
{
    const QString session = QStringLiteral("/s/") + sessionId + QLatin1Char('/');
    QString tail = rootId;
    if (!relativePath.isEmpty())
        tail += QLatin1Char('/') + encodedPath(relativePath);
    return pageTemplate("upload").filled({{"place", localPath},
                                          {"check-url", session + uploadCheckPrefix() + tail},
                                          {"upload-url", session + uploadPrefix() + tail},
                                          {"script", pageTemplate("upload.js").filled({})}});
}

} // namespace share
