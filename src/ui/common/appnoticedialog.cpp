#include "ui/common/appnoticedialog.h"

#include "ui/common/iconwidget.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"

#include <QBoxLayout>
#include <QClipboard>
#include <QGuiApplication>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>

namespace ui {
namespace common {

namespace {

constexpr int kIconWrap = 44;
constexpr int kIconSize = 22;
/// The message scrolls beyond this share of the screen, so that the buttons stay in reach.
constexpr double kMessageShare = 0.5;

struct NoticeLook
{
    ushort glyph;
    QColor ThemeColors::*ink;
    const char *style; ///< Value of the property by which the style sheet picks the frame.
};

// Indexed by AppNoticeDialog::NoticeType.
const NoticeLook kLooks[] = {
    {0xF058, &ThemeColors::successText, "success"},
    {0xF05A, &ThemeColors::infoText, "info"},
    {0xF071, &ThemeColors::warningText, "warning"},
    {0xF057, &ThemeColors::dangerText, "danger"},
};

} // namespace

AppNoticeDialog::AppNoticeDialog(QWidget *parent)
    : FramelessDialog(parent)
{
    setWindowTitle(tr("提示"));
    m_icon = new QLabel(this);
    m_icon->setObjectName(QStringLiteral("NoticeIconWrap"));
    m_icon->setFixedSize(kIconWrap, kIconWrap);
    m_icon->setAlignment(Qt::AlignCenter);

    auto *text = new QVBoxLayout;
    text->setSpacing(metrics::kFieldGap);
    buildText(text);
    buildDetailRow(text);
    text->addStretch(1);

    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kCardGap);
    row->addWidget(m_icon, 0, Qt::AlignTop);
    row->addLayout(text, 1);
    contentLayout()->addLayout(row);

    m_confirm = addButton(tr("我知道了"), QStringLiteral("primary"));
    m_confirm->setObjectName(QStringLiteral("NoticeOkBtn"));
    connect(m_confirm, &QPushButton::clicked, this, &QDialog::accept);
    refreshIconAndAccent();
}

void AppNoticeDialog::buildText(QBoxLayout *column)
{
    m_title = new WrapLabel(tr("操作完成"), this);
    m_title->setObjectName(QStringLiteral("NoticeTitle"));
    m_message = new WrapLabel(tr("已完成当前操作。"), this);
    m_message->setObjectName(QStringLiteral("NoticeMessage"));
    m_message->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    m_messageArea = new QScrollArea(this);
    m_messageArea->setWidgetResizable(true);
    m_messageArea->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_messageArea->setFocusPolicy(Qt::NoFocus);
    m_messageArea->setWidget(m_message);
    column->addWidget(m_title);
    column->addWidget(m_messageArea);
}

void AppNoticeDialog::buildDetailRow(QBoxLayout *column)
{
    m_detailRow = new QWidget(this);
    m_detailRow->setObjectName(QStringLiteral("NoticeDetailRow"));
    m_detail = new QLineEdit(m_detailRow);
    m_detail->setObjectName(QStringLiteral("NoticeDetailEdit"));
    m_detail->setReadOnly(true);
    m_copy = new QPushButton(tr("复制"), m_detailRow);
    m_copy->setObjectName(QStringLiteral("NoticeDetailCopyBtn"));
    auto *row = new QHBoxLayout(m_detailRow);
    row->setContentsMargins(0, metrics::kFieldGap, 0, 0);
    row->setSpacing(metrics::kButtonGap);
    row->addWidget(m_detail, 1);
    row->addWidget(m_copy);
    m_detailRow->hide();
    column->addWidget(m_detailRow);
    connect(m_copy, &QPushButton::clicked, this, [this] {
        QGuiApplication::clipboard()->setText(m_detail->text());
        m_copy->setText(tr("已复制"));
    });
}

void AppNoticeDialog::setNoticeType(NoticeType type)
{
    m_type = type;
    refreshIconAndAccent();
}

void AppNoticeDialog::setTitleText(const QString &title)
{
    m_title->setText(title);
    setWindowTitle(title);
}

void AppNoticeDialog::setMessageText(const QString &message)
{
    m_message->setText(message);
}

void AppNoticeDialog::setDetailText(const QString &detail)
{
    m_detail->setText(detail);
    m_detail->setCursorPosition(0);
    m_copy->setText(tr("复制"));
    m_detailRow->setVisible(!detail.isEmpty());
}

void AppNoticeDialog::setConfirmText(const QString &text)
{
    m_confirm->setText(text);
}

void AppNoticeDialog::setCancelText(const QString &text)
{
    if (!m_cancel) {
        m_cancel = addButton(text);
        m_cancel->setObjectName(QStringLiteral("NoticeCancelBtn"));
        connect(m_cancel, &QPushButton::clicked, this, &QDialog::reject);
        moveButtonToEnd(m_confirm);
        setTabOrder(m_cancel, m_confirm);
    }
    m_cancel->setText(text);
}

void AppNoticeDialog::markDestructive()
{
    setButtonRole(m_confirm, QStringLiteral("danger"));
}

void AppNoticeDialog::refreshIconAndAccent()
{
    const NoticeLook &look = kLooks[m_type];
    const QColor ink = ThemeColors::current().*look.ink;
    m_icon->setPixmap(
        IconWidget::makeFontAwesomePixmap(QString(QChar(look.glyph)), ink, kIconSize));
    setStyleProperty(m_icon, "notice", QLatin1String(look.style));
}

void AppNoticeDialog::fitMessage()
{
    const int available = contentWidth() - kIconWrap - metrics::kCardGap;
    const QScreen *screen = QGuiApplication::primaryScreen();
    const int most = screen ? qRound(screen->availableGeometry().height() * kMessageShare) : 400;
    const int needed = m_message->heightForWidth(available);
    // A scroll bar "as needed" would take its room from the text and be needed for that reason.
    m_messageArea->setVerticalScrollBarPolicy(needed > most ? Qt::ScrollBarAlwaysOn
                                                            : Qt::ScrollBarAlwaysOff);
    m_messageArea->setFixedHeight(qMin(needed, most));
}

void AppNoticeDialog::chooseDefaultButton()
{
    QPushButton *button = m_cancel ? m_cancel : m_confirm;
    button->setDefault(true);
    button->setFocus();
}

void AppNoticeDialog::showEvent(QShowEvent *event)
{
    fitMessage();
    chooseDefaultButton();
    FramelessDialog::showEvent(event);
}

namespace {

struct Notice
{
    AppNoticeDialog::NoticeType type;
    QString title;
    QString message;
    QString detail;
    QString confirmText;
    QString cancelText;
    bool destroys = false;
};

/// Title of the page that a widget is part of; empty outside pages.
QString pageTitleOf(const QWidget *widget)
{
    for (; widget; widget = widget->parentWidget()) {
        const QList<QLabel *> titles = widget->findChildren<QLabel *>(QStringLiteral("PageTitle"));
        for (const QLabel *title : titles) {
            if (title->isVisible())
                return title->text();
        }
    }
    return QString();
}

/// Runs the dialog in a nested event loop. True if it was accepted.
bool run(QWidget *parent, const Notice &notice)
{
    // On the heap: the parent may be deleted, and the dialog with it, while the loop runs.
    QPointer<AppNoticeDialog> dialog(new AppNoticeDialog(parent));
    dialog->setNoticeType(notice.type);
    dialog->setTitleText(notice.title);
    // A plain hint has no subject of its own: the window says where it belongs.
    const QString page =
        notice.title == AppNoticeDialog::tr("提示") ? pageTitleOf(parent) : QString();
    if (!page.isEmpty())
        dialog->setWindowTitle(page);
    dialog->setMessageText(notice.message);
    dialog->setDetailText(notice.detail);
    if (!notice.confirmText.isEmpty())
        dialog->setConfirmText(notice.confirmText);
    if (notice.destroys)
        dialog->markDestructive();
    if (!notice.cancelText.isEmpty())
        dialog->setCancelText(notice.cancelText);
    const bool accepted = dialog->exec() == QDialog::Accepted;
    delete dialog;
    return accepted;
}

} // namespace

void AppNoticeDialog::showSuccess(QWidget *parent, const QString &title, const QString &message,
                                  const QString &detail, const QString &confirmText)
{
    run(parent, {Success, title, message, detail, confirmText, QString()});
}

void AppNoticeDialog::showInfo(QWidget *parent, const QString &title, const QString &message,
                               const QString &detail, const QString &confirmText)
{
    run(parent, {Information, title, message, detail, confirmText, QString()});
}

void AppNoticeDialog::showWarning(QWidget *parent, const QString &title, const QString &message,
                                  const QString &detail, const QString &confirmText)
{
    run(parent, {Warning, title, message, detail, confirmText, QString()});
}

void AppNoticeDialog::showError(QWidget *parent, const QString &title, const QString &message,
                                const QString &detail, const QString &confirmText)
{
    run(parent, {Error, title, message, detail, confirmText, QString()});
}

bool AppNoticeDialog::confirm(QWidget *parent, const QString &title, const QString &message,
                              const QString &confirmText, const QString &cancelText,
                              NoticeType type)
{
    return run(parent,
               {type, title, message, QString(), confirmText.isEmpty() ? tr("确认") : confirmText,
                cancelText.isEmpty() ? tr("取消") : cancelText});
}

bool AppNoticeDialog::confirmDestruction(QWidget *parent, const QString &title,
                                         const QString &message, const QString &verb)
{
    return run(parent, {Warning, title, message, QString(), verb, tr("取消"), true});
}

} // namespace common
} // namespace ui
