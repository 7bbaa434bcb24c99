#include "ui/pages/aboutpage.h"

#include "core/deployment.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"

#include <QCoreApplication>
#include <QFile>
#include <QFrame>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPlainTextEdit>
#include <QVBoxLayout>

using ui::common::ThemeColors;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kLogoSize = 64;

// The version of the product as its users know it; the program has one of its own.
QString productVersion()
{
    return QStringLiteral("v0.1.0");
}

QLabel *newLabel(const QString &text, const char *role, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setProperty("textRole", QLatin1String(role));
    return label;
}

} // namespace

AboutPage::AboutPage(QWidget *parent, const QString &protocolPath)
    : QWidget(parent)
    , m_protocolPath(protocolPath.isEmpty() ? QCoreApplication::applicationDirPath() +
                                                  QStringLiteral("/../md/about_protocol.md")
                                            : protocolPath)
{
    setObjectName(QStringLiteral("AboutPage"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(metrics::kPageMargin, metrics::kPageMargin, metrics::kPageMargin,
                               metrics::kPageMargin);
    layout->setSpacing(metrics::kCardGap);
    layout->addWidget(buildProduct());
    layout->addWidget(buildProtocol(), 1);
    loadProtocolFromMarkdown();
}

QWidget *AboutPage::buildProduct()
{
    auto *card = new QFrame(this);
    card->setProperty("card", true);
    auto *logo = new QLabel(card);
    logo->setPixmap(QIcon(QStringLiteral(":/img/logo.png")).pixmap(kLogoSize, kLogoSize));
    auto *name = newLabel(tr("墨川归档"), "page-title", card);
    auto *version = newLabel(productVersion(), "subtle", card);
    version->setObjectName(QStringLiteral("AboutVersion"));
    auto *program =
        newLabel(tr("程序版本 %1").arg(QCoreApplication::applicationVersion()), "subtle", card);
    program->setObjectName(QStringLiteral("AboutProgramVersion"));
    program->setVisible(!QCoreApplication::applicationVersion().isEmpty());
    const QString address = core::deployment::makerSiteUrl().toString().toHtmlEscaped();
    auto *link = new QLabel(card);
    link->setObjectName(QStringLiteral("AboutMakerLink"));
    link->setTextFormat(Qt::RichText);
    link->setText(QStringLiteral("<a href='%1' style='color:%2;'>%1</a>")
                      .arg(address, ThemeColors::current().infoText.name()));
    link->setOpenExternalLinks(true);
    link->setTextInteractionFlags(Qt::TextBrowserInteraction);
    auto *texts = new QVBoxLayout;
    texts->setSpacing(metrics::kFieldGap / 2);
    texts->addWidget(name);
    texts->addWidget(version);
    texts->addWidget(program);
    texts->addWidget(link);
    auto *row = new QHBoxLayout(card);
    row->setContentsMargins(metrics::kCardPadding, metrics::kCardPadding, metrics::kCardPadding,
                            metrics::kCardPadding);
    row->setSpacing(metrics::kCardGap);
    row->addWidget(logo);
    row->addLayout(texts, 1);
    return card;
}

QWidget *AboutPage::buildProtocol()
{
    auto *card = new QFrame(this);
    card->setProperty("card", true);
    m_protocol = new QPlainTextEdit(card);
    m_protocol->setObjectName(QStringLiteral("AboutProtocolText"));
    m_protocol->setAccessibleName(tr("使用协议"));
    m_protocol->setReadOnly(true);
    auto *column = new QVBoxLayout(card);
    column->setContentsMargins(metrics::kCardPadding, metrics::kCardPadding, metrics::kCardPadding,
                               metrics::kCardPadding);
    column->setSpacing(metrics::kFieldGap);
    column->addWidget(newLabel(tr("使用协议"), "section", card));
    column->addWidget(newLabel(tr("协议内容"), "subtle", card));
    column->addWidget(m_protocol, 1);
    return card;
}

void AboutPage::loadProtocolFromMarkdown()
{
    QFile file(m_protocolPath);
    if (!file.exists())
        m_protocol->setPlainText(
            tr("未找到使用协议文件。\n\n请在程序可执行文件同级目录放置：about_protocol.md\n"
               "当前路径：%1")
                .arg(m_protocolPath));
    else if (!file.open(QIODevice::ReadOnly))
        m_protocol->setPlainText(tr("无法打开使用协议文件。"));
    else
        m_protocol->setPlainText(QString::fromUtf8(file.readAll()));
}
