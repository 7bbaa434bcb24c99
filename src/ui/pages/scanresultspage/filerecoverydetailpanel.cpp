#include "ui/pages/scanresultspage/filerecoverydetailpanel.h"

#include "ui/common/iconwidget.h"
#include "ui/common/keyroles.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/styletemplate.h"
#include "ui/common/theme.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QPropertyAnimation>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

using ui::common::IconWidget;
using ui::common::ThemeColors;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace scanresults {

namespace {

constexpr int kWidth = 360;
constexpr int kSlideMs = 180;
constexpr int kCloseIcon = 16;
constexpr int kLabelGap = 4;
constexpr int kEdge = 8; ///< Between the panel and the edges of its host.

struct RowName
{
    const char *objectName;
    QString label;
};

QVector<RowName> rowNames()
{
    return {
        {"DetailName", FileRecoveryDetailPanel::tr("文件名")},
        {"DetailSize", FileRecoveryDetailPanel::tr("大小")},
        {"DetailType", FileRecoveryDetailPanel::tr("类型")},
        {"DetailPath", FileRecoveryDetailPanel::tr("路径")},
        {"DetailBlockStart", FileRecoveryDetailPanel::tr("块起始位置")},
        {"DetailSource", FileRecoveryDetailPanel::tr("来源")},
        {"DetailIntegrity", FileRecoveryDetailPanel::tr("完整性")},
        {"DetailReason", FileRecoveryDetailPanel::tr("判断依据")},
        {"DetailProbability", FileRecoveryDetailPanel::tr("恢复几率")},
        {"DetailContiguity", FileRecoveryDetailPanel::tr("块是否连续")},
    };
}

QString panelSheet()
{
    return ui::common::fillStyleTemplate(QStringLiteral(R"qss(
QFrame#FileDetailPanel { background: @surfaceRaised@; border: 1px solid @border@;
    border-radius: 12px; }
QFrame#FileDetailPanel QLabel[textRole="subtle"] { color: @textMuted@; }
)qss"));
}

} // namespace

FileRecoveryDetailPanel::FileRecoveryDetailPanel(QWidget *parent)
    : QFrame(parent)
    , m_slide(new QPropertyAnimation(this, "geometry", this))
{
    setObjectName(QStringLiteral("FileDetailPanel"));
    setStyleSheet(panelSheet());
    setFocusPolicy(Qt::StrongFocus);
    ui::common::setKeyRole(this, ui::common::KeyRole::Panel);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kFieldGap,
                               metrics::kCardGap);
    column->setSpacing(metrics::kCardGap);
    column->addWidget(makeHead());
    column->addWidget(makeRows(), 1);
    setDetailValues(Values());
    m_slide->setDuration(kSlideMs);
    m_slide->setEasingCurve(QEasingCurve::OutCubic);
    connect(m_slide, &QPropertyAnimation::finished, this, [this] {
        if (!m_opened)
            hide();
    });
    hide();
}

QWidget *FileRecoveryDetailPanel::makeHead()
{
    auto *head = new QWidget(this);
    auto *title = new QLabel(tr("文件恢复详情"), head);
    title->setObjectName(QStringLiteral("SectionTitle"));
    m_close = new QPushButton(head);
    m_close->setObjectName(QStringLiteral("DetailCloseButton"));
    m_close->setIcon(QIcon(
        IconWidget::makePixmap(IconWidget::Close, ThemeColors::current().textMuted, kCloseIcon)));
    m_close->setToolTip(tr("关闭"));
    ui::common::setButtonRole(m_close, QStringLiteral("icon"));
    connect(m_close, &QPushButton::clicked, this, &FileRecoveryDetailPanel::hideAnimated);
    auto *row = new QHBoxLayout(head);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(title, 1);
    row->addWidget(m_close);
    return head;
}

QWidget *FileRecoveryDetailPanel::makeRows()
{
    auto *rows = new QWidget;
    auto *column = new QVBoxLayout(rows);
    column->setContentsMargins(0, 0, metrics::kCardGap, 0);
    column->setSpacing(kLabelGap);
    for (const RowName &row : rowNames()) {
        auto *label = new QLabel(row.label, rows);
        label->setProperty("textRole", QStringLiteral("subtle"));
        auto *value = new WrapLabel(rows);
        value->setObjectName(QString::fromLatin1(row.objectName));
        column->addWidget(label);
        column->addWidget(value);
        column->addSpacing(metrics::kFieldGap);
        m_values.append(value);
    }
    column->addStretch(1);
    auto *area = new QScrollArea(this);
    area->setWidgetResizable(true);
    area->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    area->setFrameShape(QFrame::NoFrame);
    area->setWidget(rows);
    return area;
}

void FileRecoveryDetailPanel::setDetailValues(const Values &values)
{
    const QString texts[] = {values.name,        values.size,      values.type,      values.path,
                             values.blockStart,  values.source,    values.integrity, values.reason,
                             values.probability, values.contiguity};
    for (int i = 0; i < m_values.size(); ++i)
        m_values.at(i)->setText(texts[i].isEmpty() ? QStringLiteral("-") : texts[i]);
}

void FileRecoveryDetailPanel::attachToHost(QWidget *host)
{
    if (m_host)
        m_host->removeEventFilter(this);
    m_host = host;
    m_opened = false;
    setParent(host);
    hide();
    host->installEventFilter(this);
    syncGeometry();
}

QRect FileRecoveryDetailPanel::placeIn(const QSize &host, bool opened) const
{
    // Less than the panel's own width beside it shows nothing of use: then it takes all there is.
    const int full = host.width() - 2 * kEdge;
    const int wanted = ThemeColors::current().fontPx(kWidth);
    const int width = full < 2 * wanted ? full : wanted;
    const int left = opened ? host.width() - width - kEdge : host.width();
    return QRect(left, kEdge, width, host.height() - 2 * kEdge);
}

void FileRecoveryDetailPanel::syncGeometry()
{
    if (!m_host)
        return;
    m_slide->stop();
    setGeometry(placeIn(m_host->size(), m_opened));
    setVisible(m_opened);
}

void FileRecoveryDetailPanel::slideTo(bool opened)
{
    if (!m_host || m_opened == opened)
        return;
    m_opened = opened;
    m_slide->stop();
    m_slide->setStartValue(geometry());
    m_slide->setEndValue(placeIn(m_host->size(), opened));
    m_slide->start();
}

void FileRecoveryDetailPanel::showAnimated()
{
    if (!m_opened)
        setGeometry(placeIn(m_host ? m_host->size() : size(), false));
    show();
    raise();
    slideTo(true);
}

void FileRecoveryDetailPanel::hideAnimated()
{
    if (!m_opened)
        return;
    slideTo(false);
    emit closed();
}

bool FileRecoveryDetailPanel::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_host && event->type() == QEvent::Resize)
        syncGeometry();
    return QFrame::eventFilter(watched, event);
}

void FileRecoveryDetailPanel::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape)
        hideAnimated();
    else
        QFrame::keyPressEvent(event);
}

} // namespace scanresults
