#include "ui/searchpagefixture.h"

#include "search/searchsettings.h"
#include "support/typing.h"

#include <QAbstractItemView>
#include <QContextMenuEvent>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPointer>
#include <QPushButton>
#include <QSettings>
#include <QStackedWidget>
#include <QTest>

using core::AppMode;
using core::controllers::search::SearchPathResolver;

FakeTools &SearchPageFixture::tools()
{
    static FakeTools tools;
    static const bool onPath = [] {
        tools.prependToPath();
        return true;
    }();
    Q_UNUSED(onPath)
    return tools;
}

void SearchPageFixture::setTool(const char *tool, const QByteArray &script)
{
    QString error;
    if (!tools().add(QString::fromLatin1(tool), script, &error))
        qFatal("%s", qPrintable(error));
}

SearchPageFixture::SearchPageFixture()
    : m_tree(new TempTree)
{
    for (const char *tool : {"pdftotext", "catdoc", "xls2csv", "catppt", "antiword", "unrtf",
                             "unzip", "gio", "trash-put", "kioclient5", "kioclient"})
        setTool(tool, "exit 0");
    m_tree->dir(QStringLiteral("target/home/user"));
    m_tree->file(QStringLiteral("target/etc/os-release"));
    useMode(AppMode::normal);
}

SearchPageFixture::~SearchPageFixture()
{
    close();
}

QString SearchPageFixture::home(const QString &relative) const
{
    const QString path = m_tree->path(QStringLiteral("target/home/user"));
    return relative.isEmpty() ? path : path + QLatin1Char('/') + relative;
}

QString SearchPageFixture::file(const QString &relative, const QByteArray &content)
{
    return m_tree->file(QStringLiteral("target/home/user/") + relative, content);
}

void SearchPageFixture::useMode(AppMode mode)
{
    m_paths = SearchPathResolver::resolve(mode, home(), m_tree->path(QStringLiteral("target")));
}

void SearchPageFixture::setSetting(const QString &key, const QVariant &value)
{
    QSettings file(searchsettings::activeConfigPath(m_paths), QSettings::IniFormat);
    file.setValue(key, value);
}

QVariant SearchPageFixture::setting(const QString &key) const
{
    return QSettings(searchsettings::activeConfigPath(m_paths), QSettings::IniFormat).value(key);
}

FileSearchPage *SearchPageFixture::open()
{
    m_page.reset();
    m_page.reset(new FileSearchPage(m_paths.mode, m_paths));
    m_page->resize(1000, 700);
    m_page->show();
    if (!QTest::qWaitForWindowActive(m_page.data()))
        qFatal("the page did not become active");
    return m_page.data();
}

void SearchPageFixture::close()
{
    m_page.reset();
}

bool SearchPageFixture::build()
{
    click("BuildIndexButton");
    return QTest::qWaitFor([this] { return status().startsWith(QStringLiteral("索引构建完成")); },
                           10000);
}

QAbstractItemView *SearchPageFixture::results(View view) const
{
    return child<QAbstractItemView>(view == Names ? "NameResultTable" : "ContentResultList");
}

void SearchPageFixture::click(const char *button) const
{
    QTest::mouseClick(child<QPushButton>(button), Qt::LeftButton);
}

void SearchPageFixture::choose(View view) const
{
    const QString label = view == Names ? QStringLiteral("文件名搜索") : QStringLiteral("全文检索");
    const auto buttons = m_page->findChildren<QPushButton *>();
    for (QPushButton *button : buttons) {
        if (button->text() == label)
            QTest::mouseClick(button, Qt::LeftButton);
    }
}

void SearchPageFixture::search(View view, const QString &text) const
{
    auto *edit = child<QLineEdit>(view == Names ? "NameSearchEdit" : "ContentSearchEdit");
    QTest::keyClick(edit, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(edit, Qt::Key_Backspace);
    support::typeInto(edit, text);
}

QString SearchPageFixture::status() const
{
    return child<QLabel>("SearchStatus")->text();
}

bool SearchPageFixture::statusIsError() const
{
    return child<QLabel>("SearchStatus")->property("tone").toString() == QStringLiteral("error");
}

QString SearchPageFixture::stats() const
{
    return child<QLabel>("SearchStats")->text();
}

QString SearchPageFixture::footer(View view) const
{
    return inView<QLabel>(view, "ResultFooter")->text();
}

QString SearchPageFixture::state(View view) const
{
    if (inView<QStackedWidget>(view, "ResultStack")->currentWidget() == results(view))
        return QString();
    return inView<QLabel>(view, "EmptyStateTitle")->text();
}

QStringList SearchPageFixture::rows(View view) const
{
    QStringList names;
    if (!state(view).isEmpty())
        return names;
    const QAbstractItemModel *model = results(view)->model();
    for (int row = 0; row < model->rowCount(); ++row)
        names.append(model->index(row, 0).data().toString());
    return names;
}

bool SearchPageFixture::chooseFromMenu(View view, int row, const QString &entry) const
{
    QAbstractItemView *list = results(view);
    const QPoint position = list->visualRect(list->model()->index(row, 0)).center();
    QContextMenuEvent event(QContextMenuEvent::Mouse, position,
                            list->viewport()->mapToGlobal(position));
    QCoreApplication::sendEvent(list->viewport(), &event);
    const QPointer<QMenu> menu = m_page->findChild<QMenu *>(QStringLiteral("ResultMenu"));
    if (!menu)
        return false;
    const auto actions = menu->actions();
    for (QAction *action : actions) {
        if (action->text() == entry && action->isEnabled()) {
            QTest::mouseClick(menu, Qt::LeftButton, Qt::NoModifier,
                              menu->actionGeometry(action).center());
            // The action follows once the menu has closed.
            return QTest::qWaitFor([&menu] { return !menu; });
        }
    }
    menu->close();
    if (!QTest::qWaitFor([&menu] { return !menu; }))
        qFatal("the menu stayed");
    return false;
}
