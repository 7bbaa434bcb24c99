#pragma once

#include "search/searchfilters.h"
#include "ui/pages/filesearchpage/fileresultactions.h"

#include <QSet>
#include <QString>
#include <QVariantList>
#include <QWidget>

class KeywordTagInput;
class QAbstractItemView;
class QComboBox;
class QHBoxLayout;
class QLabel;
class QLineEdit;
class QStackedWidget;
class QTimer;

namespace ui {
namespace common {
class EmptyState;
}
} // namespace ui

namespace filesearch {

class ResultPreview;
class SearchResultModel;

/// One of the two ways to search: line edit, filters, results. It says when to search and what for,
/// and shows what it is given; asking the index and filtering are the page's.
class SearchView : public QWidget
{
    Q_OBJECT

public:
    enum Kind {
        Names,    ///< A table, with a category filter.
        Contents, ///< A list of cards.
    };

    explicit SearchView(Kind kind, QWidget *parent = nullptr);

    /// Trimmed text of the line edit.
    QString searchText() const;
    /// Refine keywords as the index takes them.
    QString refineString() const;
    searchfilters::RowFilter rowFilter() const;

    /// Nothing to search for: no rows, no count.
    void showIdle();
    void showSearching();
    /// `kept` of `found` results passed the filters. An error may accompany results. `keepPlace`
    /// leaves scroll position and current row where they are.
    void showResults(const QVariantList &kept, int found, const QString &error, bool keepPlace);
    /// Search cannot work at all; the inputs are disabled for good. The page says why.
    void showUnavailable();
    void setBusyPaths(const QSet<QString> &paths);

signals:
    /// Text or keywords changed and the wait is over.
    void searchRequested();
    void filtersChanged();
    void actionRequested(FileAction action, const QString &path);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QLineEdit *makeSearchEdit();
    QHBoxLayout *makeFilterRow();
    QComboBox *addFilter(QHBoxLayout *row, const QString &name);
    QAbstractItemView *makeResultView();
    void wire();
    void requestSearch();
    void resetFilters();
    void showState(const QString &title, const QString &hint, const QString &action = QString());
    void fillRows(const QVariantList &rows, bool keepPlace);
    bool handleResultKey(int key, Qt::KeyboardModifiers modifiers);
    void showContextMenu(const QModelIndex &index, const QPoint &position);
    void requestAction(FileAction action, const QModelIndex &index);
    QString pathOf(const QModelIndex &index) const;

    Kind m_kind;
    SearchResultModel *m_model;
    QLineEdit *m_edit = nullptr;
    QComboBox *m_category = nullptr; ///< Names only.
    QComboBox *m_size = nullptr;
    QComboBox *m_time = nullptr;
    KeywordTagInput *m_refine = nullptr;
    QStackedWidget *m_stack;
    ui::common::EmptyState *m_state;
    QAbstractItemView *m_results = nullptr;
    QLabel *m_footer;
    ResultPreview *m_preview;
    QTimer *m_debounce;
    QTimer *m_refineTimer;
    QString m_searchedRefine;          ///< Refine keywords of the last search.
    bool m_stateClearsFilters = false; ///< What the button of the empty list does.
};

} // namespace filesearch
