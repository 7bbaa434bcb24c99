#include "sharesteps.h"

#include "support/freeport.h"
#include "support/modaldriver.h"
#include "ui/common/celldelegate.h"
#include "ui/pages/filesharepage.h"
#include "ui/pages/filesharepage/sessiontable.h"

#include <QComboBox>
#include <QDialog>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QPushButton>
#include <QRegularExpression>
#include <QSpinBox>
#include <QTest>

using fileshare::SessionTable;
using support::ModalDriver;

namespace {

constexpr int kAnswerMs = 10000;
constexpr int kPortColumn = 2;
constexpr int kStatusColumn = 4;
constexpr int kActionColumn = 7;
constexpr int kDetailAction = 0;
constexpr int kStopAction = 1;
constexpr int kFileSize = 3000000;

QString password()
{
    return QStringLiteral("Moyun+2026&x");
}

QString sharedFolder(const Tour &tour)
{
    return tour.root() + QStringLiteral("/共享资料");
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &content, QString *error)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(content) == content.size())
        return true;
    *error = file.errorString();
    return false;
}

/// Presses a button that opens one dialog after the other before it comes back.
class DialogChain
{
public:
    DialogChain(const Tour &tour, QString *error)
        : m_tour(tour)
        , m_error(error)
    {}

    /// `fill` may be empty; then the button of that name is pressed.
    void add(const char *dialogText, std::function<void(QWidget *)> fill, const char *pictureName,
             const char *button)
    {
        m_links.append({dialogText, std::move(fill), pictureName, button});
    }
    bool run(const char *button)
    {
        waitForNext();
        if (!m_tour.click(button, m_error))
            return false;
        if (m_error->isEmpty() && m_next < m_links.size())
            *m_error = QStringLiteral("no dialog “%1”").arg(QLatin1String(m_links[m_next].text));
        return m_error->isEmpty();
    }

private:
    struct Link
    {
        const char *text;
        std::function<void(QWidget *)> fill;
        const char *picture;
        const char *button;
    };

    void waitForNext()
    {
        if (m_next < m_links.size())
            m_drivers.push_back(
                std::make_unique<ModalDriver>([this](QWidget *dialog) { handle(dialog); }));
    }
    void handle(QWidget *dialog)
    {
        const Link &link = m_links[m_next];
        auto *title = dialog->findChild<QLabel *>(QStringLiteral("NoticeTitle"));
        const QString text = title ? title->text() : dialog->windowTitle();
        auto *button = dialog->findChild<QPushButton *>(QLatin1String(link.button));
        if (text != QString::fromUtf8(link.text) || !button) {
            *m_error = QStringLiteral("another dialog than “%1”: %2")
                           .arg(QString::fromUtf8(link.text), text);
            return;
        }
        if (link.fill)
            link.fill(dialog);
        m_tour.picture(QLatin1String(link.picture), m_error);
        ++m_next;
        waitForNext();
        QTest::mouseClick(button, Qt::LeftButton);
    }

    const Tour &m_tour;
    QString *m_error;
    QVector<Link> m_links;
    int m_next = 0;
    std::vector<std::unique_ptr<ModalDriver>> m_drivers;
};

bool choosePort(Tour &tour, QString *found, QString *error)
{
    if (!tour.click("Nav_file_share", error) || !tour.find<FileSharePage>("FileSharePage", error))
        return false;
    const int port = freePort();
    DialogChain chain(tour, error);
    chain.add(
        "共享端口设置",
        [port](QWidget *dialog) { dialog->findChild<QSpinBox *>()->setValue(port); }, "share-port",
        "SharePortSave");
    chain.add("端口已更新", {}, "share-port-saved", "NoticeOkBtn");
    *found = QString::number(port);
    return chain.run("SharePortSettingsButton");
}

bool chooseFrom(Tour &tour, const QString &folder, QString *error)
{
    auto *page = tour.find<FileSharePage>("FileSharePage", error);
    if (!page)
        return false;
    fileshare::SharePathChooser chooser = fileshare::SharePathChooser::dialogs();
    chooser.folder = [folder](QWidget *, const QString &) {
        return folder;
    };
    page->setPathChooser(chooser);
    return tour.click("ShareAddFolderButton", error);
}

/// Warned of, and then not shared.
bool choosePrivateFolder(Tour &tour, QString *found, QString *error)
{
    const QString folder = tour.root() + QStringLiteral("/个人");
    auto *pending = tour.find<QListWidget>("SharePendingList", error);
    if (!pending || !QDir().mkpath(folder + QStringLiteral("/.ssh")) ||
        !writeFile(folder + QStringLiteral("/.ssh/id"), "key", error))
        return false;
    QString clickError;
    const auto look = [&](QDialog *dialog, QString *why) {
        auto *title = dialog->findChild<QLabel *>(QStringLiteral("NoticeTitle"));
        *found = title ? title->text() : dialog->windowTitle();
        return tour.picture(QStringLiteral("share-private"), why);
    };
    if (!tour.withDialog([&] { chooseFrom(tour, folder, &clickError); }, look, error))
        return false;
    if (pending->count() == 0 && *found == QStringLiteral("共享私密内容？"))
        return true;
    *error = QStringLiteral("“%1”, and %2 listed").arg(*found).arg(pending->count());
    return false;
}

bool chooseFolder(Tour &tour, QString *found, QString *error)
{
    const QString folder = sharedFolder(tour);
    QByteArray content(kFileSize, Qt::Uninitialized);
    for (int i = 0; i < content.size(); ++i)
        content[i] = char(i * 31 / 7);
    if (!QDir().mkpath(folder + QStringLiteral("/照片 & 视频")) ||
        !writeFile(folder + QStringLiteral("/照片 & 视频/合影.jpg"), content, error) ||
        !writeFile(folder + QStringLiteral("/说明.txt"), "hello", error))
        return false;
    auto *pending = tour.find<QListWidget>("SharePendingList", error);
    if (!pending || !chooseFrom(tour, folder, error) ||
        !tour.waitFor([pending] { return pending->count() == 1; }, kAnswerMs,
                      QStringLiteral("the folder to be listed"), error))
        return false;
    *found = pending->item(0)->text();
    return tour.picture(QStringLiteral("share-pending"), error);
}

bool start(Tour &tour, QString *found, QString *error)
{
    DialogChain chain(tour, error);
    chain.add(
        "共享设置",
        [](QWidget *dialog) {
            QTest::keyClicks(dialog->findChild<QLineEdit *>(QStringLiteral("SharePasswordEdit")),
                             password());
            dialog->findChild<QComboBox *>(QStringLiteral("ShareAccessModeCombo"))
                ->setCurrentIndex(1);
        },
        "share-confirm", "ShareConfirmStart");
    chain.add("共享已启动", {}, "share-started", "NoticeOkBtn");
    auto *table = tour.find<SessionTable>("ShareSessionTable", error);
    if (!table || !chain.run("ShareStartButton"))
        return false;
    *found = table->model()->index(0, kStatusColumn).data().toString();
    if (*found != QStringLiteral("共享中")) {
        *error = QStringLiteral("the share is %1").arg(*found);
        return false;
    }
    return tour.picture(QStringLiteral("share-running"), error);
}

/// What a browser would do.
class Visitor
{
public:
    explicit Visitor(int port)
        : m_base(QStringLiteral("http://127.0.0.1:%1").arg(port))
    {
        m_network.setProxy(QNetworkProxy::NoProxy);
    }

    struct Answer
    {
        int status = 0;
        QByteArray body;
    };
    Answer get(const QString &path) { return ask("GET", path); }
    Answer ask(const QByteArray &method, const QString &path, const QByteArray &body = QByteArray(),
               const QMap<QByteArray, QByteArray> &headers = {})
    {
        QNetworkRequest request(QUrl(m_base + path));
        for (auto it = headers.begin(); it != headers.end(); ++it)
            request.setRawHeader(it.key(), it.value());
        request.setHeader(QNetworkRequest::ContentTypeHeader,
                          QStringLiteral("application/octet-stream"));
        std::unique_ptr<QNetworkReply> reply(m_network.sendCustomRequest(request, method, body));
        QEventLoop loop;
        QObject::connect(reply.get(), &QNetworkReply::finished, &loop, &QEventLoop::quit);
        loop.exec();
        return {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(),
                reply->readAll()};
    }
    /// The address of the link of that name in a page; empty if there is none.
    static QString linkTo(const QByteArray &page, const QString &name)
    {
        const QRegularExpression link(QStringLiteral("<a href='([^']*)'>[^<]*%1</a>")
                                          .arg(QRegularExpression::escape(name.toHtmlEscaped())));
        return link.match(QString::fromUtf8(page)).captured(1);
    }

private:
    QString m_base;
    QNetworkAccessManager m_network;
};

bool logIn(Visitor *visitor, const QString &home, QString *error)
{
    const auto shows = [&](const char *form, const char *expected) {
        QByteArray page = visitor->ask("POST", home + QStringLiteral("auth"), form).body;
        page += visitor->get(home).body; // a login that succeeds has no page of its own
        if (page.contains(expected))
            return true;
        *error = QStringLiteral("no “%1” after a login").arg(QString::fromUtf8(expected));
        return false;
    };
    const QByteArray right = "password=" + QUrl::toPercentEncoding(password());
    return shows("password=wrong", "密码错误，请重试") && shows(right.constData(), "共享文件");
}

bool visit(Tour &tour, QString *found, QString *error)
{
    auto *table = tour.find<SessionTable>("ShareSessionTable", error);
    if (!table)
        return false;
    const QString home = QStringLiteral("/s/%1/").arg(table->idAt(0));
    Visitor visitor(table->model()->index(0, kPortColumn).data().toInt());
    if (!logIn(&visitor, home, error))
        return false;
    QString place = home;
    for (const char *name : {"共享资料", "照片 & 视频", "合影.jpg"}) {
        place = Visitor::linkTo(visitor.get(place).body, QString::fromUtf8(name));
        if (place.isEmpty()) {
            *error = QStringLiteral("no link to %1").arg(QString::fromUtf8(name));
            return false;
        }
    }
    const QByteArray hash = sha256(visitor.get(place).body);
    if (hash != sha256(contentOf(sharedFolder(tour) + QStringLiteral("/照片 & 视频/合影.jpg")))) {
        *error = QStringLiteral("the download differs from the file");
        return false;
    }

    const QByteArray sent = "uploaded " + QByteArray(kFileSize, 'u');
    const QString root = place.section(QLatin1Char('/'), 3, 3);
    const QString target = home + QStringLiteral("upload/") + root;
    QMap<QByteArray, QByteArray> headers{
        {"X-File-Name", QUrl::toPercentEncoding(QStringLiteral("来自手机.bin"))},
        {"X-Overwrite", "0"}};
    const int first = visitor.ask("PUT", target, sent, headers).status;
    const int second = visitor.ask("PUT", target, "other", headers).status;
    const QByteArray stored = contentOf(sharedFolder(tour) + QStringLiteral("/来自手机.bin"));
    if (first != 201 || second != 409 || sha256(stored) != sha256(sent)) {
        *error = QStringLiteral("upload: status %1, again %2, %3 bytes stored")
                     .arg(first)
                     .arg(second)
                     .arg(stored.size());
        return false;
    }
    *found =
        QStringLiteral("SHA-256 down %1…, up %2…")
            .arg(QString::fromLatin1(hash.left(12)), QString::fromLatin1(sha256(sent).left(12)));
    return true;
}

bool press(SessionTable *table, int action, QString *error)
{
    auto *delegate = qobject_cast<ui::common::CellDelegate *>(table->itemDelegate());
    if (!delegate) {
        *error = QStringLiteral("the table has no buttons");
        return false;
    }
    const QRect button = delegate->actionRect(table->model()->index(0, kActionColumn), action);
    QTest::mouseClick(table->viewport(), Qt::LeftButton, Qt::NoModifier, button.center());
    return true;
}

bool showDetail(Tour &tour, QString *found, QString *error)
{
    auto *table = tour.find<SessionTable>("ShareSessionTable", error);
    if (!table)
        return false;
    const auto look = [&](QDialog *dialog, QString *why) {
        auto *log = dialog->findChild<QAbstractItemView *>(QStringLiteral("ShareLogTable"));
        auto *close = dialog->findChild<QPushButton *>(QStringLiteral("ShareDetailCloseButton"));
        if (!log || !close) {
            *why = QStringLiteral("another dialog: %1").arg(dialog->objectName());
            return false;
        }
        QStringList actions;
        for (int row = 0; row < log->model()->rowCount(); ++row)
            actions.append(log->model()->index(row, 2).data().toString());
        for (const char *action :
             {"浏览", "下载", "认证成功", "认证失败", "上传成功", "上传冲突"}) {
            if (!actions.contains(QString::fromUtf8(action))) {
                *why = QStringLiteral("no line “%1” among %2")
                           .arg(QString::fromUtf8(action), actions.join(QLatin1Char(' ')));
                return false;
            }
        }
        *found =
            QStringLiteral("%1 lines: %2").arg(actions.size()).arg(actions.join(QLatin1Char(' ')));
        if (!tour.picture(QStringLiteral("share-detail"), why))
            return false;
        QTest::mouseClick(close, Qt::LeftButton);
        return true;
    };
    QString pressError;
    const bool ok = tour.withDialog([&] { press(table, kDetailAction, &pressError); }, look, error);
    if (!pressError.isEmpty())
        *error = pressError;
    return ok && pressError.isEmpty();
}

bool stop(Tour &tour, QString *found, QString *error)
{
    auto *table = tour.find<SessionTable>("ShareSessionTable", error);
    if (!table || !press(table, kStopAction, error))
        return false;
    const QModelIndex status = table->model()->index(0, kStatusColumn);
    if (!tour.waitFor([&] { return status.data().toString() == QStringLiteral("已停止"); },
                      kAnswerMs, QStringLiteral("the share to stop"), error))
        return false;
    Visitor visitor(table->model()->index(0, kPortColumn).data().toInt());
    const int answer = visitor.get(QStringLiteral("/s/%1/").arg(table->idAt(0))).status;
    if (answer != 0) {
        *error = QStringLiteral("the server still answers, %1").arg(answer);
        return false;
    }
    *found = status.data().toString() + QStringLiteral(", nobody answers");
    return tour.picture(QStringLiteral("share-stopped"), error);
}

} // namespace

QList<TourStep> shareSteps()
{
    return {{"共享端口", choosePort},
            {"私密文件夹", choosePrivateFolder},
            {"选择共享文件夹", chooseFolder},
            {"开始共享", start},
            {"从别的设备访问", visit},
            {"共享详情", showDetail},
            {"停止共享", stop}};
}
