#pragma once

#include "recoverypagesfixture.h"
#include "support/dialogsteps.h"
#include "support/faketools.h"
#include "support/temptree.h"
#include "ui/common/appnoticedialog.h"
#include "ui/pages/wechatcleanpage.h"

#include <QButtonGroup>
#include <QDialog>
#include <QProgressBar>
#include <QRadioButton>
#include <QStackedWidget>

#include <sys/stat.h>
#include <unistd.h>

using namespace support;
using testsupport::child;
using testsupport::clickOn;
using testsupport::textOf;
using UiState = WechatCleanPage::UiState;

/// What the tests of the cleaner's page share.
namespace wechatclean {

const QString kAccount = QStringLiteral(".local/share/WeChat/wxid_a");
const QString kFiles = kAccount + QStringLiteral("/msg/file");
const QString kOperations = QStringLiteral(".config/morvane/wechat_clean/operations");

inline QString operator""_u(const char *utf8, size_t length)
{
    return QString::fromUtf8(utf8, static_cast<int>(length));
}

struct Identity
{
    quint64 inode = 0;
    quint64 links = 0;
};

inline Identity identityOf(const QString &path)
{
    struct stat info = {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return {};
    return {info.st_ino, info.st_nlink};
}

inline QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArrayLiteral("unreadable");
}

/// A page over a home of its own, and a list of processes without the client in it: the real one
/// names this test.
struct Bench
{
    TempTree home;
    FakeTools tools;
    QByteArray oldPath;
    QStringList told; ///< Titles and messages of the notices.
    std::unique_ptr<WechatCleanPage> page;
    QTimer guard; ///< Closes a notice that nobody awaits: the test is to fail, not to hang.
    QPointer<QWidget> seen;

    Bench()
    {
        QObject::connect(&guard, &QTimer::timeout, &guard, [this] {
            QWidget *dialog = QApplication::activeModalWidget();
            if (dialog && dialog == seen && qobject_cast<ui::common::AppNoticeDialog *>(dialog))
                dialog->close();
            seen = dialog;
        });
        guard.start(2000);
        QString error;
        if (!tools.add(QStringLiteral("ps"), FakeTools::prints("bash bash\n"), &error))
            qFatal("%s", qPrintable(error));
        oldPath = tools.prependToPath();
    }
    ~Bench() { qputenv("PATH", oldPath); }

    /// Three files of one content, one of them with two names, and a pair of another.
    void fill()
    {
        home.file(kFiles + "/2026-01/a.bin"_u, bytes('a'));
        home.file(kFiles + "/2026-02/b.bin"_u, bytes('a'));
        home.file(kFiles + "/2026-02/c.bin"_u, bytes('a'));
        QVERIFY(::link(QFile::encodeName(file("2026-02/c.bin"_u)).constData(),
                       QFile::encodeName(file("2026-02/c2.bin"_u)).constData()) == 0);
        home.file(kFiles + "/p.bin"_u, bytes('p'));
        home.file(kFiles + "/q.bin"_u, bytes('p'));
        home.file(kFiles + "/small.bin"_u, "x");
        home.file(kFiles + "/small2.bin"_u, "x");
    }
    static QByteArray bytes(char what) { return QByteArray(1024 * 1024 + (what == 'p'), what); }
    QString file(const QString &name) const { return home.path(kFiles + "/"_u + name); }

    void show(UiState awaited = UiState::Directories)
    {
        page.reset(new WechatCleanPage(nullptr, home.path()));
        page->resize(780, 640);
        page->show();
        QVERIFY(QTest::qWaitForWindowExposed(page.get()));
        QTRY_COMPARE(page->state(), awaited);
    }
    /// Runs `action`, which leads to so many notices, now or later, and answers them. Unlike
    /// ModalDriver it passes over the record dialog, which is modal itself. All in one call: a
    /// notice may come up inside the wait for the one before.
    template <typename Action>
    void answering(const char *button, Action action, int notices = 1)
    {
        int answered = 0;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &poll, [&] {
            QWidget *dialog = QApplication::activeModalWidget();
            if (answered == notices || !qobject_cast<ui::common::AppNoticeDialog *>(dialog))
                return;
            ++answered;
            presses(button, &told)(dialog);
        });
        poll.start(10);
        action();
        QTRY_COMPARE(answered, notices);
    }
    void scan()
    {
        answering("NoticeOkBtn", [this] { clickOn(page.get(), "WechatStartScanButton"); });
        QCOMPARE(page->state(), UiState::Results);
    }
    QList<QWidget *> cards() const
    {
        QList<QWidget *> list = page->findChildren<QWidget *>(QStringLiteral("WechatGroupCard"));
        list.erase(std::remove_if(list.begin(), list.end(),
                                  [](QWidget *card) { return card->isHidden(); }),
                   list.end());
        std::sort(list.begin(), list.end(), [](QWidget *a, QWidget *b) { return a->y() < b->y(); });
        return list;
    }
    QWidget *history()
    {
        clickOn(page.get(), "WechatHistoryButton");
        return child<QWidget>(page.get(), "WechatHistoryDialog");
    }
    /// A clean of everything, the question and the report answered.
    void cleanAll()
    {
        answering(
            "NoticeOkBtn", [this] { clickOn(page.get(), "WechatCleanAllButton"); }, 2);
        QTRY_COMPARE(page->state(), UiState::Results);
    }
};

/// The look that the page has in the desktop session.
inline void useLightTheme()
{
    using namespace ui::common;
    ThemeColors::init(ThemeType::light, 1.0);
    qApp->setPalette(buildPalette(ThemeType::light));
    qApp->setStyleSheet(buildAppStyleSheet(ThemeType::light));
}

} // namespace wechatclean
