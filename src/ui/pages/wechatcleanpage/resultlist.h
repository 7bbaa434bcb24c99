#pragma once

#include "ui/pages/wechatcleanpage/cleanresults.h"

#include <QAbstractScrollArea>
#include <QMap>
#include <QVector>

namespace wechatclean {

class GroupCard;

/// The cards of all groups. Only those near the visible part exist as widgets: heights are known
/// from the data, so that thousands of groups come up and scroll at once. Object name:
/// WechatResultList.
class ResultList : public QAbstractScrollArea
{
    Q_OBJECT

public:
    explicit ResultList(QWidget *parent = nullptr);

    /// Shows these results, which must outlive the list; call again after any change of theirs. The
    /// list itself writes only what the user sets on the cards: the kept files and the rows shown.
    void setResults(CleanResults *results, bool keepPlace);
    int cardCount() const { return m_cards.size(); }

signals:
    void cleanRequested(QWidget *card);
    void openFolderRequested(const QString &path);

protected:
    void resizeEvent(QResizeEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    int contentHeight() const { return m_tops.isEmpty() ? 0 : m_tops.last(); }
    void measure();
    void updateScrollBar();
    void placeCards();
    void focusCard(int index, int place);
    GroupCard *makeCard(int index);
    void dropCard(GroupCard *card);
    void chainTabs();
    void showMore(int index);
    void onFocusChanged(QWidget *old, QWidget *now);

    CleanResults *m_results = nullptr;
    bool m_isRebuilding = false; ///< Cards go; where the focus wanders meanwhile means nothing.
    QVector<int> m_tops;         ///< Of the cards, and the end of the last one, in logical pixels.
    QMap<int, GroupCard *> m_cards;
};

} // namespace wechatclean
