#include "ui/pages/realtimeprotectionpage/filelistcard.h"

#include "ui/common/emptystate.h"
#include "ui/common/keyroles.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/protectedfiletree.h"
#include "ui/common/theme.h"
#include "ui/common/widgetstyle.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>

using ui::common::EmptyState;
using ui::common::ProtectedFileTree;
namespace metrics = ui::common::metrics;

namespace realtimeprotection {

namespace {

constexpr int kSearchDelayMs = 400;
constexpr int kSearchWidth = 240; ///< Base pixels.
constexpr int kMinHeight = 260;   ///< Room for the lock's content; base pixels.

QPushButton *listButton(const QString &text, const char *name, const QString &role, QWidget *parent)
{
    auto *button = new QPushButton(text, parent);
    button->setObjectName(QLatin1String(name));
    ui::common::setButtonRole(button, role);
    return button;
}

} // namespace

FileListCard::FileListCard(QWidget *parent)
    : QFrame(parent)
    , m_searchTimer(new QTimer(this))
{
    setObjectName(QStringLiteral("fileListFrame"));
    setProperty("card", true);
    setMinimumHeight(ui::common::ThemeColors::current().fontPx(kMinHeight));
    m_searchTimer->setSingleShot(true);
    m_searchTimer->setInterval(kSearchDelayMs);
    connect(m_searchTimer, &QTimer::timeout, this, &FileListCard::searchRequested);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                               metrics::kCardPadding);
    column->setSpacing(metrics::kFieldGap);
    column->addLayout(buildHeading());
    column->addLayout(buildActions());
    buildTree();
    column->addWidget(m_tree, 1);
    // Keeps the heading at the top while the rest is hidden.
    column->addStretch();
    setConnected(false);
}

QBoxLayout *FileListCard::buildHeading()
{
    m_heading = new QLabel(tr("受保护文件列表"), this);
    m_heading->setObjectName(QStringLiteral("FileListHeading"));
    m_heading->setProperty("textRole", QStringLiteral("section"));
    m_search = new QLineEdit(this);
    ui::common::setKeyRole(m_search, ui::common::KeyRole::Search);
    m_search->setObjectName(QStringLiteral("FileSearchEdit"));
    m_search->setPlaceholderText(tr("搜索文件..."));
    m_search->setClearButtonEnabled(true);
    m_search->setFixedWidth(ui::common::ThemeColors::current().fontPx(kSearchWidth));
    connect(m_search, &QLineEdit::textChanged, m_searchTimer, QOverload<>::of(&QTimer::start));
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kFieldGap);
    row->addWidget(m_heading, 1);
    row->addWidget(m_search);
    return row;
}

QBoxLayout *FileListCard::buildActions()
{
    m_restore = listButton(tr("恢复选中"), "RestoreSelectedButton", QString(), this);
    m_delete = listButton(tr("删除选中"), "DeleteSelectedButton", QStringLiteral("danger"), this);
    ui::common::setKeyRole(m_delete, ui::common::KeyRole::Remove);
    m_clear = listButton(tr("清空全部"), "ClearAllButton", QStringLiteral("danger"), this);
    connect(m_restore, &QPushButton::clicked, this, &FileListCard::restoreRequested);
    connect(m_delete, &QPushButton::clicked, this, &FileListCard::deleteRequested);
    connect(m_clear, &QPushButton::clicked, this, &FileListCard::clearRequested);
    m_checked = new QLabel(this);
    m_checked->setObjectName(QStringLiteral("CheckedCountLabel"));
    m_checked->setProperty("textRole", QStringLiteral("subtle"));
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kButtonGap);
    row->addWidget(m_restore);
    row->addWidget(m_delete);
    row->addWidget(m_checked);
    row->addStretch(1);
    row->addWidget(m_clear);
    return row;
}

void FileListCard::buildTree()
{
    m_tree = new ProtectedFileTree(tr("删除时间"), this);
    m_tree->setObjectName(QStringLiteral("ProtectedFileTree"));
    connect(m_tree, &ProtectedFileTree::checkedCountChanged, this, &FileListCard::showCheckedCount);
}

void FileListCard::showFiles(const QVector<protectedfiles::ProtectedFile> &files, int totalCount)
{
    m_isRead = true;
    if (filter().isEmpty())
        m_totalCount = totalCount;
    m_heading->setText(tr("受保护文件列表 (%1 个文件)").arg(totalCount));
    m_tree->populate(files);
    updateButtons();
    updateEmptyState();
}

void FileListCard::showCheckedCount(int count)
{
    m_checkedCount = count;
    m_checked->setText(count > 0 ? tr("已勾选 %1 个").arg(count) : QString());
    updateButtons();
}

void FileListCard::updateButtons()
{
    const QString gone = m_isConnected ? QString() : tr("守护进程未连接");
    const QString nothingTicked = gone.isEmpty() && m_checkedCount == 0 ? tr("请先勾选文件") : gone;
    ui::common::setUsable(m_restore, nothingTicked);
    ui::common::setUsable(m_delete, nothingTicked);
    ui::common::setUsable(m_clear,
                          gone.isEmpty() && m_totalCount == 0 ? tr("还没有受保护的文件") : gone);
}

void FileListCard::setConnected(bool connected)
{
    m_isConnected = connected;
    m_search->setEnabled(connected);
    updateButtons();
    if (!connected)
        m_searchTimer->stop();
    updateEmptyState();
}

void FileListCard::updateEmptyState()
{
    EmptyState *state = m_tree->emptyState();
    state->setTone(EmptyState::Tone::Plain);
    if (!m_isConnected) {
        state->setTone(EmptyState::Tone::Error);
        state->setTexts(tr("守护进程未连接"), tr("连接恢复后会自动显示受保护的文件。"));
    } else if (!m_isRead) {
        state->setTone(EmptyState::Tone::Busy);
        state->setTexts(tr("正在读取受保护的文件..."), QString());
    } else if (!filter().isEmpty()) {
        state->setTexts(tr("没有匹配的文件"), tr("换个关键词，或清空搜索框查看全部文件。"));
    } else {
        state->setTexts(tr("还没有受保护的文件"),
                        tr("开启保护后，被删除的受保护类型文件会出现在这里。"));
    }
}

void FileListCard::setContentVisible(bool visible)
{
    // The heading, too: it would shine through what lies over the list.
    for (QWidget *part : {static_cast<QWidget *>(m_heading), static_cast<QWidget *>(m_tree),
                          static_cast<QWidget *>(m_search), static_cast<QWidget *>(m_restore),
                          static_cast<QWidget *>(m_delete), static_cast<QWidget *>(m_clear),
                          static_cast<QWidget *>(m_checked)})
        part->setVisible(visible);
}

QStringList FileListCard::checkedIds() const
{
    return m_tree->checkedIds();
}

QString FileListCard::filter() const
{
    return m_search->text();
}

} // namespace realtimeprotection
