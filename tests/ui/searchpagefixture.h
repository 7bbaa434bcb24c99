#pragma once

#include "core/appmode.h"
#include "core/controllers/search/searchpathresolver.h"
#include "support/faketools.h"
#include "support/temptree.h"
#include "ui/pages/filesearchpage.h"

#include <QScopedPointer>
#include <QString>
#include <QStringList>

class QAbstractItemView;
class QComboBox;
class QLineEdit;

/// A file search page over a home of its own, with the real engines behind it. External tools are
/// scripts, so that neither text extraction nor the trash depends on the machine.
class SearchPageFixture
{
public:
    enum View { Names, Contents };

    SearchPageFixture();
    ~SearchPageFixture();

    /// Home of the user whose files are searched: in livecd mode below the target root.
    QString home(const QString &relative = QString()) const;
    QString file(const QString &relative, const QByteArray &content = QByteArrayLiteral("text"));
    QString databasePath() const { return m_paths.databasePath; }
    QString configPath() const { return m_paths.configPath; }
    core::controllers::search::SearchRuntimePaths &paths() { return m_paths; }
    /// One folder for the whole run, since the place of a tool is looked up once a run.
    static FakeTools &tools();
    static void setTool(const char *tool, const QByteArray &script);

    /// Before open(): resolves the context of that mode.
    void useMode(core::AppMode mode);
    /// A key of the settings file that the page reads.
    void setSetting(const QString &key, const QVariant &value);
    QVariant setting(const QString &key) const;

    /// Makes and shows the page; an earlier one goes.
    FileSearchPage *open();
    void close();
    /// Presses the build button and waits for the end. False with a wrong last status.
    bool build();

    FileSearchPage *page() const { return m_page.data(); }
    template <typename T>
    T *child(const char *name) const
    {
        return m_page->findChild<T *>(QString::fromLatin1(name));
    }
    /// A widget of one of the two views.
    template <typename T>
    T *inView(View view, const char *name) const
    {
        return child<QWidget>(view == Names ? "NameSearchView" : "ContentSearchView")
            ->findChild<T *>(QString::fromLatin1(name));
    }
    QAbstractItemView *results(View view) const;

    void click(const char *button) const;
    /// Shows a view by its half of the toggle.
    void choose(View view) const;
    /// Replaces the text of the view's line edit, as by typing.
    void search(View view, const QString &text) const;

    QString status() const;
    bool statusIsError() const;
    QString stats() const;
    QString footer(View view) const;
    /// Title of the state that stands in place of results; empty while there are some.
    QString state(View view) const;
    /// Names of the rows that are shown.
    QStringList rows(View view) const;
    /// Opens the context menu of a row and clicks the entry of that text.
    bool chooseFromMenu(View view, int row, const QString &entry) const;

private:
    QScopedPointer<TempTree> m_tree;
    core::controllers::search::SearchRuntimePaths m_paths;
    QScopedPointer<FileSearchPage> m_page;
};
