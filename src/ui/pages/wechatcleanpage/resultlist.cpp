#include "ui/pages/wechatcleanpage/resultlist.h"

#include "ui/common/layoutmetrics.h"
#include "ui/pages/wechatcleanpage/groupcard.h"

#include <QApplication>
#include <QKeyEvent>
#include <QScrollBar>

#include <algorithm>

namespace metrics = ui::common::metrics;

namespace wechatclean {

namespace {

constexpr int kScrollStep = 40;
constexpr int kScrollBarGap = 4; ///< Between the cards and the scroll bar.
constexpr int kRowsMore = 50;

} // namespace

ResultList::ResultList(QWidget *parent)
    : QAbstractScrollArea(parent)
{
    setObjectName(QStringLiteral("WechatResultList"));
    setFrameShape(QFrame::NoFrame);
    setFocusPolicy(Qt::NoFocus);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    viewport()->setAutoFillBackground(false);
    verticalScrollBar()->setSingleStep(kScrollStep);
    connect(qApp, &QApplication::focusChanged, this, &ResultList::onFocusChanged);
}

void ResultList::setResults(CleanResults *results, bool keepPlace)
{
    const int place = keepPlace ? verticalScrollBar()->value() : 0;
    const bool hadFocus = viewport()->isAncestorOf(QApplication::focusWidget());
    m_isRebuilding = true;
    m_results = results;
    m_tops.clear();
    const QList<GroupCard *> cards = m_cards.values();
    m_cards.clear();
    for (GroupCard *card : cards)
        dropCard(card);
    measure();
    verticalScrollBar()->setValue(place);
    m_isRebuilding = false;
    placeCards();
    if (hadFocus && !m_cards.isEmpty())
        focusCard(m_cards.firstKey(), 0);
}

void ResultList::focusCard(int index, int place)
{
    if (const GroupCard *card = m_cards.value(index)) {
        const QList<QWidget *> chain = card->tabChain();
        chain.at(qMin(place, chain.size() - 1))->setFocus(Qt::TabFocusReason);
    }
}

void ResultList::measure()
{
    m_tops.clear();
    if (m_results && !m_results->groups.isEmpty()) {
        m_tops.reserve(m_results->groups.size() + 1);
        int top = 0;
        for (const ResultGroup &group : qAsConst(m_results->groups)) {
            m_tops.append(top);
            top += GroupCard::heightFor(group) + metrics::kCardGap;
        }
        m_tops.append(top);
    }
    updateScrollBar();
}

void ResultList::updateScrollBar()
{
    const int page = viewport()->height();
    verticalScrollBar()->setPageStep(page);
    verticalScrollBar()->setRange(0, qMax(0, contentHeight() - metrics::kCardGap - page));
}

void ResultList::resizeEvent(QResizeEvent *event)
{
    QAbstractScrollArea::resizeEvent(event);
    updateScrollBar();
    placeCards();
}

void ResultList::scrollContentsBy(int, int)
{
    placeCards();
}

void ResultList::placeCards()
{
    if (m_tops.isEmpty() || m_isRebuilding)
        return;
    // Half a view more on both sides: Tab finds the next card made.
    const int view = viewport()->height();
    const int top = verticalScrollBar()->value();
    const auto begin = m_tops.constBegin();
    const auto last = m_tops.constEnd() - 1;
    const int from =
        qMax(0, static_cast<int>(std::upper_bound(begin, last, top - view / 2) - begin) - 1);
    const int to =
        qMin(m_tops.size() - 2,
             static_cast<int>(std::upper_bound(begin, last, top + view + view / 2) - begin));
    bool changed = false;
    for (auto card = m_cards.begin(); card != m_cards.end();) {
        // The one with the focus stays, or the next Tab would start elsewhere.
        const bool isNeeded = (card.key() >= from && card.key() <= to) ||
                              card.value()->isAncestorOf(QApplication::focusWidget());
        if (isNeeded) {
            ++card;
            continue;
        }
        GroupCard *gone = card.value();
        card = m_cards.erase(card);
        dropCard(gone);
        changed = true;
    }
    for (int index = from; index <= to; ++index) {
        if (m_cards.contains(index))
            continue;
        m_cards.insert(index, makeCard(index));
        changed = true;
    }
    // Without a scroll bar the cards end where the card above them does.
    const int width =
        viewport()->width() - (verticalScrollBar()->maximum() > 0 ? kScrollBarGap : 0);
    for (auto card = m_cards.constBegin(); card != m_cards.constEnd(); ++card) {
        const int index = card.key();
        card.value()->setGeometry(0, m_tops.at(index) - top, width,
                                  m_tops.at(index + 1) - m_tops.at(index) - metrics::kCardGap);
    }
    if (!changed)
        return;
    for (GroupCard *card : qAsConst(m_cards))
        card->show();
    chainTabs();
}

GroupCard *ResultList::makeCard(int index)
{
    auto *card = new GroupCard(index, m_results->groups.at(index), m_results->scanDirs, viewport());
    connect(card, &GroupCard::keptChanged, this,
            [this](int group, int file) { m_results->groups[group].kept = file; });
    connect(card, &GroupCard::cleanRequested, this, [this, card] { emit cleanRequested(card); });
    connect(card, &GroupCard::openFolderRequested, this, &ResultList::openFolderRequested);
    connect(card, &GroupCard::moreRequested, this, &ResultList::showMore, Qt::QueuedConnection);
    return card;
}

void ResultList::dropCard(GroupCard *card)
{
    // Often called from a signal of something inside the card.
    card->disconnect(this);
    card->hide();
    card->deleteLater();
}

void ResultList::chainTabs()
{
    QWidget *previous = nullptr;
    for (GroupCard *card : qAsConst(m_cards)) {
        const QList<QWidget *> chain = card->tabChain();
        for (QWidget *next : chain) {
            if (previous)
                setTabOrder(previous, next);
            previous = next;
        }
    }
}

void ResultList::showMore(int index)
{
    if (!m_results || index >= m_results->groups.size())
        return;
    const int firstNew = m_results->groups.at(index).shown;
    m_results->groups[index].shown += kRowsMore;
    m_isRebuilding = true;
    if (GroupCard *old = m_cards.take(index))
        dropCard(old);
    measure();
    m_isRebuilding = false;
    placeCards();
    // The button that was pressed has gone; the first of the new rows follows it.
    focusCard(index, 1 + 2 * firstNew);
}

void ResultList::onFocusChanged(QWidget *, QWidget *now)
{
    if (m_isRebuilding || !now || !viewport()->isAncestorOf(now))
        return;
    const int top = now->mapTo(viewport(), QPoint()).y();
    const int bottom = top + now->height();
    QScrollBar *bar = verticalScrollBar();
    if (top < metrics::kFieldGap)
        bar->setValue(bar->value() + top - metrics::kCardGap);
    else if (bottom > viewport()->height() - metrics::kFieldGap)
        bar->setValue(bar->value() + bottom - viewport()->height() + metrics::kCardGap);
}

void ResultList::keyPressEvent(QKeyEvent *event)
{
    QScrollBar *bar = verticalScrollBar();
    if (event->key() == Qt::Key_Home)
        bar->setValue(bar->minimum());
    else if (event->key() == Qt::Key_End)
        bar->setValue(bar->maximum());
    else
        QAbstractScrollArea::keyPressEvent(event);
}

} // namespace wechatclean
