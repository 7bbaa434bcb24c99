#include "ui/pages/filesharepage/pendingcard.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/sharepathlist.h"
#include "ui/common/sharewidgets.h"
#include "ui/common/widgetstyle.h"
#include "ui/pages/filesharepage/sharerules.h"

#include <QEvent>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace metrics = ui::common::metrics;

namespace fileshare {

namespace {

constexpr int kRows = 3;
constexpr int kListFrame = 10; ///< Padding and border of the list, above and below.

} // namespace

PendingCard::PendingCard(QWidget *parent)
    : QFrame(parent)
{
    setObjectName(QStringLiteral("SharePendingCard"));
    setProperty("card", true);
    buildList();
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                               metrics::kCardGap);
    column->setSpacing(metrics::kFieldGap);
    column->addLayout(buildTools());
    column->addWidget(m_list);
    column->addLayout(buildFooter());
    connect(m_list, &SharePathList::pathsChanged, this, [this] {
        m_ignored = 0;
        showState();
    });
    connect(m_list, &QListWidget::itemSelectionChanged, this,
            [this] { m_removeSelected->setEnabled(!m_list->selectedItems().isEmpty()); });
    showState();
}

void PendingCard::buildList()
{
    m_list = new SharePathList(this);
    m_list->setObjectName(QStringLiteral("SharePendingList"));
    m_list->setAccessibleName(tr("选择要共享的文件或文件夹"));
    m_list->setFixedHeight(kRows * metrics::rowControlHeight() + kListFrame);
    m_dropHint = new QLabel(tr("拖拽文件或文件夹到这里\n或使用上方按钮添加"), m_list->viewport());
    m_dropHint->setObjectName(QStringLiteral("ShareDropHint"));
    m_dropHint->setAlignment(Qt::AlignCenter);
    m_dropHint->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_list->viewport()->installEventFilter(this);
}

QBoxLayout *PendingCard::buildTools()
{
    QPushButton *addFiles = namedButton(tr("添加文件"), "ShareAddFilesButton", this);
    QPushButton *addFolder = namedButton(tr("添加文件夹"), "ShareAddFolderButton", this);
    m_removeSelected = namedButton(tr("移除选中"), "ShareRemoveSelectedButton", this);
    m_removeSelected->setEnabled(false);
    m_clear = namedButton(tr("清空"), "ShareClearButton", this);
    connect(addFiles, &QPushButton::clicked, this, &PendingCard::addFilesRequested);
    connect(addFolder, &QPushButton::clicked, this, &PendingCard::addFolderRequested);
    connect(m_removeSelected, &QPushButton::clicked, this, &PendingCard::removeSelected);
    connect(m_clear, &QPushButton::clicked, this, &PendingCard::clearPaths);
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kButtonGap);
    row->addWidget(sectionTitle(tr("选择要共享的文件或文件夹"), this), 1);
    for (QPushButton *button : {addFiles, addFolder, m_removeSelected, m_clear})
        row->addWidget(button);
    return row;
}

QBoxLayout *PendingCard::buildFooter()
{
    m_status = subtleLabel(QString(), this);
    m_status->setObjectName(QStringLiteral("SharePendingStatus"));
    QPushButton *port = namedButton(tr("端口设置"), "SharePortSettingsButton", this);
    m_start = namedButton(tr("开始共享"), "ShareStartButton", this);
    ui::common::setButtonRole(m_start, QStringLiteral("primary"));
    connect(port, &QPushButton::clicked, this, &PendingCard::portRequested);
    connect(m_start, &QPushButton::clicked, this, &PendingCard::startRequested);
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kButtonGap);
    row->addWidget(m_status, 1);
    row->addWidget(port);
    row->addWidget(m_start);
    return row;
}

QStringList PendingCard::paths() const
{
    return m_list->paths();
}

void PendingCard::addPaths(const QStringList &paths)
{
    m_ignored = paths.size() - m_list->addPaths(paths);
    showState();
}

void PendingCard::setPort(int port)
{
    m_port = port;
    showState();
}

void PendingCard::setDropping(bool isOver)
{
    ui::common::setStyleProperty(m_list, "dropping", isOver);
    ui::common::setStyleProperty(m_dropHint, "dropping", isOver);
}

void PendingCard::removeSelected()
{
    m_list->removeSelected();
}

void PendingCard::clearPaths()
{
    m_list->clearPaths();
}

void PendingCard::showState()
{
    const int count = m_list->count();
    m_dropHint->setVisible(count == 0);
    ui::common::setStyleProperty(m_list, "filled", count > 0);
    m_clear->setEnabled(count > 0);
    m_status->setText(pendingText(count, m_ignored, m_port));
    updateStartButtonState();
}

void PendingCard::updateStartButtonState()
{
    m_start->setEnabled(m_list->count() > 0);
}

void PendingCard::updateDropHintGeometry()
{
    m_dropHint->setGeometry(m_list->viewport()->rect());
}

bool PendingCard::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_list->viewport() && event->type() == QEvent::Resize)
        updateDropHintGeometry();
    return QFrame::eventFilter(watched, event);
}

} // namespace fileshare
