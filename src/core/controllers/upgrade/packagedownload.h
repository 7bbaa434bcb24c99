#pragma once

#include <QCryptographicHash>
#include <QObject>
#include <QPointer>
#include <QSaveFile>
#include <QString>
#include <QTimer>
#include <QUrl>

class QNetworkAccessManager;
class QNetworkReply;

namespace core {
namespace controllers {
namespace upgrade {

/// One fetch of an update package. The body goes to a temporary file beside the target and through
/// the hash as it arrives, so that memory stays small and the target appears only when the hash
/// has matched. GUI thread, asynchronous; deletes itself after finished().
class PackageDownload : public QObject
{
    Q_OBJECT

public:
    /// `md5` in hexadecimal. The folder of `target` is made if need be.
    PackageDownload(QNetworkAccessManager *network, const QUrl &url, const QString &md5,
                    const QString &target, QObject *parent = nullptr);
    ~PackageDownload() override;

    /// Gives up after so long without a byte. Before start(); 0 waits forever.
    void setStallTimeout(int ms) { m_stall.setInterval(ms); }
    /// Ends in finished(), never before this returns.
    void start();

signals:
    void progress(qint64 received, qint64 total); ///< Bytes; total -1 while unknown.
    /// All bytes are there and their hash is looked at.
    void verifying();
    void finished(bool ok, const QString &message);

private:
    void takeBytes();
    void onReplyFinished();
    void restartStallClock();
    bool openTarget();
    /// An empty message means success.
    QString conclude();
    void end(const QString &message);

    QNetworkAccessManager *m_network;
    QUrl m_url;
    QByteArray m_md5;
    QSaveFile m_file;
    QCryptographicHash m_hash{QCryptographicHash::Md5};
    QPointer<QNetworkReply> m_reply; ///< May go before, with its manager.
    QTimer m_stall;
    qint64 m_received = 0;
    bool m_writeFailed = false;
};

/// True if the file's MD5 is `md5` (hexadecimal, any case). Reads the whole file: not for the GUI
/// thread.
bool fileHasMd5(const QString &path, const QString &md5);

} // namespace upgrade
} // namespace controllers
} // namespace core
