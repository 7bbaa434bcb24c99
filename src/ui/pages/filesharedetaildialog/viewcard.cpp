#include "ui/pages/filesharedetaildialog/viewcard.h"

#include "ui/common/elidedlabel.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/sharewidgets.h"
#include "ui/common/statwidgets.h"
#include "ui/common/utils/sharetext.h"

#include <QApplication>
#include <QClipboard>
#include <QGridLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTimer>

using ui::common::ElidedLabel;
using ui::common::StatusPill;
namespace metrics = ui::common::metrics;

namespace fileshare {

namespace {

constexpr int kCopiedMs = 2000;
constexpr int kMostUrlRows = 2;
constexpr int kListFrame = 10; ///< Padding and border of the list, above and below.
constexpr int kFactsPerRow = 3;
constexpr int kGridColumns = 2 * kFactsPerRow;
const QString kTimeFormat = QStringLiteral("yyyy-MM-dd HH:mm:ss");

struct Fact
{
    const char *caption; ///< UTF-8.
    const char *objectName;
};

constexpr Fact kFacts[] = {
    {"共享端口", "ShareDetailPort"},       {"共享时间", "ShareDetailCreated"},
    {"时长", "ShareDetailDuration"},       {"过期时间", "ShareDetailExpires"},
    {"下载次数", "ShareDetailDownloads"},  {"上传次数", "ShareDetailUploads"},
    {"共享权限", "ShareDetailPermission"},
};

/// In the order of kFacts.
QStringList factValues(const ShareSession &session)
{
    return {QString::number(session.port),
            timeText(session.createdAt, kTimeFormat),
            durationText(session.durationMin),
            timeText(session.expiresAt, kTimeFormat, QStringLiteral("无")),
            QString::number(session.totalDownloads),
            QString::number(session.totalUploads),
            permissionText(session.accessMode)};
}

} // namespace

ViewCard::ViewCard(QWidget *parent)
    : QFrame(parent)
    , m_copiedTimer(new QTimer(this))
{
    setObjectName(QStringLiteral("ViewCard"));
    setProperty("card", true);
    m_copiedTimer->setSingleShot(true);
    m_copiedTimer->setInterval(kCopiedMs);
    connect(m_copiedTimer, &QTimer::timeout, this, &ViewCard::showUrlHint);
    auto *grid = new QGridLayout(this);
    grid->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                             metrics::kCardGap);
    grid->setHorizontalSpacing(metrics::kCardGap);
    grid->setVerticalSpacing(metrics::kFieldGap);
    for (int column = 1; column < kGridColumns; column += 2)
        grid->setColumnStretch(column, 1);
    buildFacts(grid);
    buildUrls(grid);
}

void ViewCard::buildFacts(QGridLayout *grid)
{
    m_content = new ElidedLabel(this);
    m_content->setObjectName(QStringLiteral("ShareDetailContent"));
    m_status = new StatusPill(QString(), StatusPill::Info, this);
    m_status->setObjectName(QStringLiteral("ShareDetailStatus"));
    grid->addWidget(subtleLabel(tr("共享内容"), this), 0, 0);
    grid->addWidget(m_content, 0, 1, 1, kGridColumns - 2);
    grid->addWidget(m_status, 0, kGridColumns - 1, Qt::AlignRight | Qt::AlignVCenter);
    int place = 0;
    for (const Fact &fact : kFacts) {
        auto *value = new QLabel(this);
        value->setObjectName(QLatin1String(fact.objectName));
        const int row = 1 + place / kFactsPerRow;
        const int column = 2 * (place % kFactsPerRow);
        grid->addWidget(subtleLabel(QString::fromUtf8(fact.caption), this), row, column);
        grid->addWidget(value, row, column + 1);
        m_values.append(value);
        ++place;
    }
}

void ViewCard::buildUrls(QGridLayout *grid)
{
    m_urlList = new QListWidget(this);
    m_urlList->setObjectName(QStringLiteral("ShareUrlList"));
    m_urlList->setAccessibleName(tr("访问地址"));
    m_urlList->setTextElideMode(Qt::ElideMiddle);
    m_urlList->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_copy = namedButton(tr("复制"), "ShareCopyUrlButton", this);
    connect(m_copy, &QPushButton::clicked, this, &ViewCard::copySelectedUrl);
    m_urlHint = subtleLabel(QString(), this);
    m_urlHint->setObjectName(QStringLiteral("ShareUrlHint"));
    const int row = grid->rowCount();
    grid->addWidget(subtleLabel(tr("访问地址"), this), row, 0);
    auto *line = new QHBoxLayout;
    line->setSpacing(metrics::kButtonGap);
    line->addWidget(m_urlList, 1);
    line->addWidget(m_copy);
    grid->addLayout(line, row, 1, 1, kGridColumns - 1);
    grid->addWidget(m_urlHint, row + 1, 1, 1, kGridColumns - 1);
}

void ViewCard::showSession(const ShareSession &session, const QStringList &urls)
{
    m_content->setText(session.rootNames.join(QStringLiteral("、")));
    m_status->setText(statusText(session.status));
    m_status->setType(pillForStatus(session.status));
    const QStringList values = factValues(session);
    for (int i = 0; i < m_values.size(); ++i)
        m_values.at(i)->setText(values.at(i));
    m_isActive = isActive(session.status);
    showUrls(urls);
    if (!m_copiedTimer->isActive())
        showUrlHint();
}

void ViewCard::showUrls(const QStringList &urls)
{
    // What the user has selected stays so while visitors' counters change.
    if (urls == m_urls && m_urlList->count() > 0)
        return;
    m_urls = urls;
    m_urlList->clear();
    m_urlList->addItems(urls);
    m_urlList->setCurrentRow(urls.isEmpty() ? -1 : 0);
    const int rows = qBound(1, urls.size(), kMostUrlRows);
    m_urlList->setFixedHeight(rows * metrics::rowControlHeight() + kListFrame);
    m_copy->setEnabled(!urls.isEmpty());
}

void ViewCard::showUrlHint()
{
    QString hint;
    if (m_urls.isEmpty())
        hint = tr("未检测到可用的局域网地址，请检查网络连接。");
    else if (!m_isActive)
        hint = tr("共享未运行，重新开始后才能通过链接访问。");
    m_urlHint->setText(hint);
}

void ViewCard::copySelectedUrl()
{
    const QListWidgetItem *chosen = m_urlList->currentItem();
    if (!chosen)
        return;
    QApplication::clipboard()->setText(chosen->text());
    m_urlHint->setText(tr("已复制到剪贴板"));
    m_copiedTimer->start();
}

} // namespace fileshare
