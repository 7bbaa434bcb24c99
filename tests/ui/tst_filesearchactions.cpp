#include "support/dialogsteps.h"
#include "support/typing.h"
#include "ui/pages/filesearchpage/resulttable.h"
#include "ui/searchpagefixture.h"

#include <QAbstractItemView>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDesktopServices>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QTest>
#include <QUrl>

using filesearch::ResultTable;
using support::choosesFolder;
using support::ModalDriver;
using support::presses;
using View = SearchPageFixture::View;

Q_DECLARE_METATYPE(View)

namespace {

constexpr auto Names = SearchPageFixture::Names;
constexpr auto Contents = SearchPageFixture::Contents;

QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

} // namespace

/// What a person does with the files that were found, in the table and in the cards.
class TestFileSearchActions : public QObject
{
    Q_OBJECT

public slots:
    void takeUrl(const QUrl &url) { m_opened.append(url.toLocalFile()); }

private slots:
    void init();
    void cleanup();
    void opensFiles_data() { views(); }
    void opensFiles();
    void opensByTheButtonsOfARow();
    void tellsOfMissingFiles_data();
    void tellsOfMissingFiles();
    void copies_data() { views(); }
    void copies();
    void movesBesideAFileOfThatName_data() { views(); }
    void movesBesideAFileOfThatName();
    void saysWhyAMoveFails();
    void movesToTheTrash_data() { views(); }
    void movesToTheTrash();
    void deletesOnlyWhenConfirmed();
    void tellsWhenNothingCanTrash();
    void keepsABusyFileAlone();
    void keepsThePlaceInALongList();

private:
    static void views();
    QAbstractItemView *showRows(View view);
    void press(View view, int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier);
    QString path(const char *name) const { return m_f->home(QString::fromUtf8(name)); }

    QScopedPointer<SearchPageFixture> m_f;
    QStringList m_opened;
};

void TestFileSearchActions::views()
{
    QTest::addColumn<View>("view");
    QTest::newRow("table") << Names;
    QTest::newRow("cards") << Contents;
}

void TestFileSearchActions::init()
{
    m_opened.clear();
    QDesktopServices::setUrlHandler(QStringLiteral("file"), this, "takeUrl");
    m_f.reset(new SearchPageFixture);
    m_f->file(QStringLiteral("资料/needle 一.txt"), "needle 1");
    m_f->file(QStringLiteral("资料/needle 二.txt"), "needle 2");
    m_f->open();
    QVERIFY(m_f->build());
}

void TestFileSearchActions::cleanup()
{
    QDesktopServices::unsetUrlHandler(QStringLiteral("file"));
    m_f.reset();
}

/// Both files in the view, with the first one's row current.
QAbstractItemView *TestFileSearchActions::showRows(View view)
{
    m_f->choose(view);
    m_f->search(view, QStringLiteral("needle"));
    QAbstractItemView *list = m_f->results(view);
    const bool found =
        QTest::qWaitFor([&] { return m_f->rows(view).size() == 2; }) && list->isVisible();
    if (!found)
        qFatal("the rows did not come");
    const int row = m_f->rows(view).indexOf(QStringLiteral("needle 一.txt"));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier,
                      list->visualRect(list->model()->index(row, 0)).center());
    return list;
}

void TestFileSearchActions::press(View view, int key, Qt::KeyboardModifiers modifiers)
{
    QTest::keyClick(m_f->results(view), static_cast<Qt::Key>(key), modifiers);
}

void TestFileSearchActions::opensFiles()
{
    QFETCH(View, view);
    QAbstractItemView *list = showRows(view);
    press(view, Qt::Key_Return);
    QCOMPARE(m_opened, QStringList(path("资料/needle 一.txt")));
    QCOMPARE(m_f->status(), QStringLiteral("已打开文件：needle 一.txt"));
    QTest::mouseDClick(list->viewport(), Qt::LeftButton, Qt::NoModifier,
                       list->visualRect(list->currentIndex()).center());
    QCOMPARE(m_opened.size(), 2);
    QVERIFY(m_f->chooseFromMenu(view, list->currentIndex().row(), QStringLiteral("打开文件")));
    QVERIFY(m_f->chooseFromMenu(view, list->currentIndex().row(), QStringLiteral("打开文件夹")));
    QCOMPARE(m_opened.mid(2), QStringList({path("资料/needle 一.txt"), path("资料")}));

    // The menu key means the current row, wherever the mouse is.
    QContextMenuEvent menuKey(QContextMenuEvent::Keyboard, QPoint(1, 1));
    QCoreApplication::sendEvent(list, &menuKey);
    auto *menu = m_f->page()->findChild<QMenu *>(QStringLiteral("ResultMenu"));
    QVERIFY(menu);
    QTest::keyClick(menu, Qt::Key_Down);
    QTest::keyClick(menu, Qt::Key_Return);
    QTRY_COMPARE(m_opened.size(), 5);
    QCOMPARE(m_opened.last(), path("资料/needle 一.txt"));
}

void TestFileSearchActions::opensByTheButtonsOfARow()
{
    auto *table = static_cast<ResultTable *>(showRows(Names));
    const int row = m_f->rows(Names).indexOf(QStringLiteral("needle 二.txt"));
    QWidget *viewport = table->viewport();
    const QPoint open = table->buttonRect(row, ResultTable::OpenButton).center();
    const QPoint folder = table->buttonRect(row, ResultTable::FolderButton).center();
    QTest::mouseClick(viewport, Qt::LeftButton, Qt::NoModifier, open);
    QTest::mouseClick(viewport, Qt::LeftButton, Qt::NoModifier, folder);
    QCOMPARE(m_opened, QStringList({path("资料/needle 二.txt"), path("资料")}));
    QCOMPARE(m_f->status(), QStringLiteral("已打开所在目录：") + path("资料"));

    // A press that ends elsewhere is taken back; so is one with another button.
    QTest::mousePress(viewport, Qt::LeftButton, Qt::NoModifier, open);
    QTest::mouseRelease(viewport, Qt::LeftButton, Qt::NoModifier, folder);
    QTest::mouseClick(viewport, Qt::RightButton, Qt::NoModifier, open);
    QCOMPARE(m_opened.size(), 2);
    // Two quick clicks are two clicks on the button.
    QTest::mouseClick(viewport, Qt::LeftButton, Qt::NoModifier, folder);
    QTest::mouseDClick(viewport, Qt::LeftButton, Qt::NoModifier, folder);
    QTest::mouseRelease(viewport, Qt::LeftButton, Qt::NoModifier, folder);
    QCOMPARE(m_opened.mid(2), QStringList({path("资料"), path("资料")}));
}

void TestFileSearchActions::tellsOfMissingFiles_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QString>("title");
    QTest::newRow("open") << QStringLiteral("打开文件") << QStringLiteral("打开失败");
    QTest::newRow("folder") << QStringLiteral("打开文件夹") << QStringLiteral("打开失败");
    QTest::newRow("copy") << QStringLiteral("复制") << QStringLiteral("打开失败");
    QTest::newRow("move") << QStringLiteral("移动到") << QStringLiteral("移动失败");
    QTest::newRow("delete") << QStringLiteral("删除") << QStringLiteral("打开失败");
}

void TestFileSearchActions::tellsOfMissingFiles()
{
    QFETCH(QString, entry);
    QFETCH(QString, title);
    QAbstractItemView *list = showRows(Names);
    QVERIFY(QFile::remove(path("资料/needle 一.txt")));
    QStringList texts;
    ModalDriver driver(presses("NoticeOkBtn", &texts));
    QVERIFY(m_f->chooseFromMenu(Names, list->currentIndex().row(), entry));
    QVERIFY(driver.handled());
    QCOMPARE(texts, QStringList({title, QStringLiteral("文件不存在或已被移除。")}));
    QCOMPARE(m_f->rows(Names), QStringList(QStringLiteral("needle 二.txt")));
    QCOMPARE(m_opened, QStringList());
}

void TestFileSearchActions::copies()
{
    QFETCH(View, view);
    showRows(view);
    press(view, Qt::Key_C, Qt::ControlModifier);
    const QString file = path("资料/needle 一.txt");
    const QMimeData *data = QGuiApplication::clipboard()->mimeData();
    QCOMPARE(data->text(), file);
    QCOMPARE(data->urls(), QList<QUrl>({QUrl::fromLocalFile(file)}));
    QCOMPARE(data->data(QStringLiteral("x-special/gnome-copied-files")),
             "copy\n" + QUrl::fromLocalFile(file).toEncoded());
    QCOMPARE(m_f->status(), QStringLiteral("已复制文件：needle 一.txt"));
}

void TestFileSearchActions::movesBesideAFileOfThatName()
{
    QFETCH(View, view);
    QAbstractItemView *list = showRows(view);
    m_f->file(QStringLiteral("目标/needle 一.txt"), "other");
    QStringList texts;
    ModalDriver driver(choosesFolder(path("目标"), &texts));
    QVERIFY(m_f->chooseFromMenu(view, list->currentIndex().row(), QStringLiteral("移动到")));
    QVERIFY(driver.handled());
    QCOMPARE(texts, QStringList(QStringLiteral("选择目标文件夹")));
    QTRY_COMPARE(m_f->status(), QStringLiteral("已移动到：") + path("目标/needle 一_1.txt"));
    QCOMPARE(read(path("目标/needle 一_1.txt")), QByteArray("needle 1"));
    QCOMPARE(read(path("目标/needle 一.txt")), QByteArray("other"));
    QVERIFY(m_f->rows(view).contains(QStringLiteral("needle 一_1.txt")));
    // The row goes on with the new place.
    press(view, Qt::Key_Return);
    QCOMPARE(m_opened, QStringList(path("目标/needle 一_1.txt")));
}

void TestFileSearchActions::saysWhyAMoveFails()
{
    QAbstractItemView *list = showRows(Names);
    QStringList texts;
    {
        ModalDriver cancelled([](QWidget *dialog) { dialog->close(); });
        QVERIFY(m_f->chooseFromMenu(Names, list->currentIndex().row(), QStringLiteral("移动到")));
        QCOMPARE(m_f->status(), QStringLiteral("已取消移动。"));
    }
    {
        ModalDriver chosen(choosesFolder(QStringLiteral("/proc"), &texts));
        QVERIFY(m_f->chooseFromMenu(Names, list->currentIndex().row(), QStringLiteral("移动到")));
    }
    texts.clear();
    ModalDriver notice(presses("NoticeOkBtn", &texts));
    QTRY_VERIFY(notice.handled());
    QCOMPARE(texts, QStringList({QStringLiteral("移动失败"),
                                 QStringLiteral("无法移动文件，请检查权限或目标位置。")}));
    QCOMPARE(read(path("资料/needle 一.txt")), QByteArray("needle 1"));
    QCOMPARE(m_f->rows(Names).size(), 2);
    QCOMPARE(m_f->status(), QStringLiteral("移动失败"));
    QVERIFY(m_f->statusIsError());
}

void TestFileSearchActions::movesToTheTrash()
{
    QFETCH(View, view);
    showRows(view);
    SearchPageFixture::setTool("gio", "rm \"$2\"");
    const int earlierCalls = SearchPageFixture::tools().calls().size();
    QStringList texts;
    ModalDriver driver(presses("NoticeOkBtn", &texts));
    press(view, Qt::Key_Delete);
    QVERIFY(driver.handled());
    QCOMPARE(texts, QStringList({QStringLiteral("确认删除"),
                                 QStringLiteral("确定要删除文件 needle 一.txt 吗？")}));
    QTRY_COMPARE(m_f->status(), QStringLiteral("已移到回收站：needle 一.txt"));
    QCOMPARE(m_f->rows(view), QStringList(QStringLiteral("needle 二.txt")));
    QCOMPARE(SearchPageFixture::tools().calls().mid(earlierCalls),
             QList<QStringList>(
                 {{QStringLiteral("gio"), QStringLiteral("trash"), path("资料/needle 一.txt")}}));
}

void TestFileSearchActions::deletesOnlyWhenConfirmed()
{
    showRows(Names);
    const int earlierCalls = SearchPageFixture::tools().calls().size();
    QStringList texts;
    ModalDriver driver([&](QWidget *dialog) {
        texts << dialog->findChild<QPushButton *>(QStringLiteral("NoticeOkBtn"))->text()
              << dialog->findChild<QPushButton *>(QStringLiteral("NoticeCancelBtn"))->text();
        QTest::mouseClick(dialog->findChild<QPushButton *>(QStringLiteral("NoticeCancelBtn")),
                          Qt::LeftButton);
    });
    press(Names, Qt::Key_Delete);
    QVERIFY(driver.handled());
    QCOMPARE(texts, QStringList({QStringLiteral("确认"), QStringLiteral("取消")}));
    QCOMPARE(m_f->status(), QStringLiteral("已取消删除。"));
    QCOMPARE(m_f->rows(Names).size(), 2);
    QCOMPARE(SearchPageFixture::tools().calls().size(), earlierCalls);
}

void TestFileSearchActions::tellsWhenNothingCanTrash()
{
    showRows(Names);
    for (const char *tool : {"gio", "trash-put", "kioclient5", "kioclient"})
        SearchPageFixture::setTool(tool, "exit 1");
    QStringList texts;
    {
        ModalDriver confirm(presses("NoticeOkBtn", &texts));
        press(Names, Qt::Key_Delete);
    }
    texts.clear();
    ModalDriver notice(presses("NoticeOkBtn", &texts));
    QTRY_VERIFY(notice.handled());
    QCOMPARE(texts,
             QStringList({QStringLiteral("删除失败"),
                          QStringLiteral("无法将文件移到回收站，请检查权限或系统回收站配置。")}));
    QCOMPARE(m_f->rows(Names).size(), 2);
    QVERIFY(m_f->statusIsError());
}

void TestFileSearchActions::keepsABusyFileAlone()
{
    auto *table = static_cast<ResultTable *>(showRows(Names));
    const int row = table->currentIndex().row();
    const QString marker = path("go");
    SearchPageFixture::setTool("gio", "while [ ! -e '" + QFile::encodeName(marker) +
                                          "' ]; do sleep 0.02; done; exit 0");
    QStringList texts;
    {
        ModalDriver confirm(presses("NoticeOkBtn", &texts));
        press(Names, Qt::Key_Delete);
    }
    QCOMPARE(m_f->status(), QStringLiteral("正在移到回收站：needle 一.txt"));
    // The window lives on, and the file can't be used for something else meanwhile.
    QVERIFY(!m_f->chooseFromMenu(Names, row, QStringLiteral("移动到")));
    QTest::mouseClick(table->viewport(), Qt::LeftButton, Qt::NoModifier,
                      table->buttonRect(row, ResultTable::OpenButton).center());
    QCOMPARE(m_opened, QStringList());
    press(Names, Qt::Key_Return);
    QCOMPARE(m_f->status(), QStringLiteral("该文件正在处理，请稍候。"));
    m_f->file(QStringLiteral("go"));
    QTRY_COMPARE(m_f->rows(Names), QStringList(QStringLiteral("needle 二.txt")));
}

void TestFileSearchActions::keepsThePlaceInALongList()
{
    for (int i = 0; i < 60; ++i)
        m_f->file(QStringLiteral("long/row %1.txt").arg(i));
    QVERIFY(m_f->build());
    m_f->search(Names, QStringLiteral("row "));
    QTRY_COMPARE(m_f->rows(Names).size(), 60);
    auto *table = m_f->results(Names);
    const QString name = m_f->rows(Names).at(40);
    table->scrollTo(table->model()->index(40, 0), QAbstractItemView::PositionAtCenter);
    table->setCurrentIndex(table->model()->index(40, 0));
    const int top = table->visualRect(table->currentIndex()).top();
    QStringList texts;
    ModalDriver driver(presses("NoticeOkBtn", &texts));
    press(Names, Qt::Key_Delete);
    QTRY_COMPARE(m_f->rows(Names).size(), 59);
    QVERIFY(!m_f->rows(Names).contains(name));
    QCOMPARE(table->currentIndex().row(), 40);
    QCOMPARE(table->visualRect(table->currentIndex()).top(), top);
}

QTEST_MAIN(TestFileSearchActions)
#include "tst_filesearchactions.moc"
