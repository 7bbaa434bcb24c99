#include "ui/pages/wechatcleanpage/directorypanel.h"

#include "ui/common/elidedlabel.h"
#include "ui/common/emptystate.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/widgetstyle.h"
#include "ui/pages/wechatcleanpage/profilerules.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>

using ui::common::ElidedLabel;
using ui::common::EmptyState;
using ui::common::IconWidget;
namespace metrics = ui::common::metrics;

namespace wechatclean {

DirectoryPanel::DirectoryPanel(QWidget *parent)
    : QWidget(parent)
    , m_stack(new QStackedWidget(this))
{
    m_stack->setObjectName(QStringLiteral("WechatDirectoryStack"));
    m_stack->addWidget(buildEmptyCard());
    m_stack->addWidget(buildList());
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(metrics::kCardGap);
    column->addWidget(m_stack, 1);
    column->addWidget(buildButtons());
    setProfiles(QVariantList(), QSet<QString>());
}

QWidget *DirectoryPanel::buildEmptyCard()
{
    auto *card = new QFrame(this);
    card->setProperty("card", true);
    auto *state = new EmptyState(IconWidget::Folder, card);
    state->setObjectName(QStringLiteral("WechatEmptyCard"));
    state->setTexts(tr("还没有检测到可用的微信目录"),
                    tr("你可以先点击“手动添加目录”，选择微信数据所在目录，再开始扫描重复文件。"));
    state->setActionText(tr("手动添加目录"));
    connect(state, &EmptyState::actionTriggered, this, &DirectoryPanel::addRequested);
    auto *column = new QVBoxLayout(card);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(state);
    return card;
}

QWidget *DirectoryPanel::buildList()
{
    m_list = new QScrollArea(this);
    m_list->setObjectName(QStringLiteral("WechatProfileList"));
    m_list->setFrameShape(QFrame::NoFrame);
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_list->setWidgetResizable(true);
    return m_list;
}

QWidget *DirectoryPanel::buildButtons()
{
    auto *bar = new QWidget(this);
    const auto add = [bar](const QString &text, const char *name) {
        auto *button = new QPushButton(text, bar);
        button->setObjectName(QLatin1String(name));
        return button;
    };
    m_add = add(tr("手动添加目录"), "WechatAddDirButton");
    QPushButton *redetect = add(tr("重新检测"), "WechatRedetectButton");
    m_back = add(tr("返回结果"), "WechatBackToResultsButton");
    m_start = add(tr("开始扫描"), "WechatStartScanButton");
    ui::common::setButtonRole(m_start, QStringLiteral("primary"));
    connect(m_add, &QPushButton::clicked, this, &DirectoryPanel::addRequested);
    connect(redetect, &QPushButton::clicked, this, &DirectoryPanel::redetectRequested);
    connect(m_back, &QPushButton::clicked, this, &DirectoryPanel::backRequested);
    connect(m_start, &QPushButton::clicked, this, &DirectoryPanel::startRequested);
    auto *row = new QHBoxLayout(bar);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(metrics::kButtonGap);
    row->addWidget(m_add);
    row->addWidget(redetect);
    row->addStretch(1);
    row->addWidget(m_back);
    row->addWidget(m_start);
    m_back->hide();
    return bar;
}

void DirectoryPanel::setHasResults(bool hasResults)
{
    m_back->setVisible(hasResults);
}

void DirectoryPanel::setProfiles(const QVariantList &profiles, const QSet<QString> &deselected)
{
    auto *page = new QWidget;
    auto *column = new QVBoxLayout(page);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(metrics::kFieldGap);
    for (const QVariant &profile : profiles)
        column->addWidget(makeCard(profile.toMap(), !deselected.contains(profilePath(profile))));
    column->addStretch(1);
    // The old page may be the sender of the signal that led here.
    if (QWidget *old = m_list->takeWidget()) {
        old->hide();
        old->deleteLater();
    }
    m_list->setWidget(page);
    m_stack->setCurrentIndex(profiles.isEmpty() ? 0 : 1);
    m_add->setVisible(!profiles.isEmpty());
    m_start->setVisible(!profiles.isEmpty());
}

QWidget *DirectoryPanel::makeCard(const QVariantMap &profile, bool selected)
{
    const QString path = wechatclean::profilePath(profile);
    const QString id = profile.value(QStringLiteral("wxId")).toString();
    auto *card = new QFrame;
    card->setObjectName(QStringLiteral("WechatProfileCard"));
    card->setProperty("card", true);
    card->setProperty("profilePath", path);

    auto *check = new QCheckBox(card);
    check->setObjectName(QStringLiteral("WechatProfileCheck"));
    check->setAccessibleName(path);
    check->setChecked(selected);
    auto *type = new QLabel(profile.value(QStringLiteral("typeLabel")).toString(), card);
    type->setObjectName(QStringLiteral("WechatProfileType"));
    type->setProperty("textRole", QStringLiteral("section"));
    type->setTextFormat(Qt::PlainText);
    auto *name = new ElidedLabel(id.isEmpty() ? path : id, Qt::ElideMiddle, card);
    name->setObjectName(QStringLiteral("WechatProfilePath"));
    name->setToolTip(path);
    const QStringList dirs = profile.value(QStringLiteral("scanDirs")).toStringList();
    auto *caption = new ElidedLabel(tr("扫描目录：%1").arg(dirs.join(QStringLiteral("；"))),
                                    Qt::ElideMiddle, card);
    caption->setObjectName(QStringLiteral("WechatProfileDirs"));
    caption->setProperty("textRole", QStringLiteral("subtle"));
    auto *remove = new QPushButton(tr("移除"), card);
    remove->setObjectName(QStringLiteral("WechatProfileRemove"));
    remove->setProperty("role", QStringLiteral("quiet"));
    remove->setAccessibleDescription(path);

    connect(check, &QCheckBox::toggled, this,
            [this, path](bool checked) { emit selectionChanged(path, checked); });
    connect(remove, &QPushButton::clicked, this, [this, path] { emit removeRequested(path); });

    auto *heading = new QHBoxLayout;
    heading->setSpacing(metrics::kFieldGap);
    heading->addWidget(type);
    heading->addWidget(name, 1);
    auto *texts = new QVBoxLayout;
    texts->setSpacing(metrics::kFieldGap / 2);
    texts->addLayout(heading);
    texts->addWidget(caption);
    auto *row = new QHBoxLayout(card);
    row->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                            metrics::kCardGap);
    row->setSpacing(metrics::kCardGap);
    row->addWidget(check);
    row->addLayout(texts, 1);
    row->addWidget(remove);
    return card;
}

} // namespace wechatclean
