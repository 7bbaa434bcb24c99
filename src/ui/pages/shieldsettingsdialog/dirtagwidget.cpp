#include "ui/pages/shieldsettingsdialog/dirtagwidget.h"

#include "ui/common/elidedlabel.h"
#include "ui/common/iconwidget.h"
#include "ui/common/theme.h"

#include <QHBoxLayout>
#include <QPushButton>

using ui::common::ElidedLabel;
using ui::common::IconWidget;
using ui::common::ThemeColors;

namespace {

constexpr int kIconSize = 14;
constexpr int kButtonSize = 18;
constexpr int kCrossSize = 10;
constexpr int kGap = 6;

} // namespace

DirTagWidget::DirTagWidget(const QString &path, QWidget *parent)
    : QFrame(parent)
    , m_path(path)
{
    setObjectName(QStringLiteral("DirTag"));
    const ThemeColors &colors = ThemeColors::current();
    auto *icon = new IconWidget(IconWidget::Folder, this);
    icon->setFixedSize(kIconSize, kIconSize);
    icon->setColor(colors.infoText);
    auto *text = new ElidedLabel(path, Qt::ElideMiddle, this);
    text->setObjectName(QStringLiteral("DirTagPath"));
    auto *remove = new QPushButton(this);
    remove->setObjectName(QStringLiteral("DirTagRemove"));
    remove->setFixedSize(kButtonSize, kButtonSize);
    remove->setIcon(IconWidget::makePixmap(IconWidget::Close, colors.textMuted, kCrossSize));
    remove->setIconSize(QSize(kCrossSize, kCrossSize));
    remove->setAutoDefault(false);
    remove->setToolTip(tr("移除"));
    remove->setAccessibleName(tr("移除 %1").arg(path));
    connect(remove, &QPushButton::clicked, this, [this] { emit removeRequested(m_path); });

    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(kGap + 2, kGap / 2, kGap, kGap / 2);
    row->setSpacing(kGap);
    row->addWidget(icon);
    row->addWidget(text, 1);
    row->addWidget(remove);
}
