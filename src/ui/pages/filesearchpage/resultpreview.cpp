#include "ui/pages/filesearchpage/resultpreview.h"

#include "search/extract/indextext.h"

#include <QFutureWatcher>
#include <QGuiApplication>
#include <QImageReader>
#include <QLabel>
#include <QScreen>
#include <QVBoxLayout>
#include <QtConcurrent>

namespace filesearch {

namespace {

constexpr int kImageSide = 320;
constexpr int kTextWidth = 420;
constexpr int kMostLines = 14;
constexpr int kMostCharacters = 900;
constexpr int kReadBytes = 16384;
constexpr int kMargin = 12;

QString firstLines(const QString &text)
{
    QStringList lines;
    const QStringList all = text.left(4 * kMostCharacters).split(QLatin1Char('\n'));
    for (const QString &line : all) {
        const QString simple = line.simplified();
        if (!simple.isEmpty() && lines.size() < kMostLines)
            lines.append(simple);
    }
    const QString joined = lines.join(QLatin1Char('\n'));
    return joined.size() > kMostCharacters ? joined.left(kMostCharacters) + QChar(0x2026) : joined;
}

} // namespace

PreviewContent readPreview(const QString &path)
{
    PreviewContent content;
    QImageReader reader(path);
    reader.setAutoTransform(true);
    if (reader.canRead()) {
        const QSize size = reader.size();
        if (size.isValid() && (size.width() > kImageSide || size.height() > kImageSide))
            reader.setScaledSize(size.scaled(kImageSide, kImageSide, Qt::KeepAspectRatio));
        content.image = reader.read();
    }
    if (content.image.isNull())
        content.text = firstLines(search::readForIndex(path, kReadBytes).text);
    return content;
}

ResultPreview::ResultPreview(QWidget *parent)
    : QFrame(parent, Qt::ToolTip)
    , m_label(new QLabel(this))
{
    setObjectName(QStringLiteral("ResultPreview"));
    setFrameShape(QFrame::StyledPanel);
    setFocusPolicy(Qt::NoFocus);
    setAttribute(Qt::WA_ShowWithoutActivating);
    m_label->setObjectName(QStringLiteral("ResultPreviewLabel"));
    m_label->setTextFormat(Qt::PlainText);
    m_label->setWordWrap(true);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(kMargin, kMargin, kMargin, kMargin);
    layout->addWidget(m_label);
}

void ResultPreview::toggle(const QString &path, const QRect &rect, QWidget *viewport)
{
    if (isVisible()) {
        close();
        return;
    }
    m_path = path;
    m_row = QRect(viewport->mapToGlobal(rect.topLeft()), QSize(viewport->width(), rect.height()));
    PreviewContent waiting;
    waiting.text = tr("正在读取...");
    show(waiting);
    auto *watcher = new QFutureWatcher<PreviewContent>(this);
    connect(watcher, &QFutureWatcher<PreviewContent>::finished, this, [this, watcher, path] {
        watcher->deleteLater();
        PreviewContent content = watcher->result();
        if (!isVisible() || path != m_path)
            return;
        if (content.image.isNull() && content.text.isEmpty())
            content.text = tr("没有可以预览的内容");
        show(content);
    });
    watcher->setFuture(QtConcurrent::run(readPreview, path));
}

void ResultPreview::show(const PreviewContent &content)
{
    if (content.image.isNull()) {
        m_label->setText(content.text);
        m_label->setFixedWidth(kTextWidth);
    } else {
        m_label->setPixmap(QPixmap::fromImage(content.image));
        m_label->setFixedWidth(content.image.width());
    }
    adjustSize();
    place();
    QFrame::show();
}

/// Below the row, or above it where there is no room.
void ResultPreview::place()
{
    const QScreen *screen = QGuiApplication::screenAt(m_row.center());
    const QRect room = (screen ? screen : QGuiApplication::primaryScreen())->availableGeometry();
    int top = m_row.bottom() + 1;
    if (top + height() > room.bottom())
        top = qMax(room.top(), m_row.top() - height());
    move(qBound(room.left(), m_row.left() + kMargin, qMax(room.left(), room.right() - width())),
         top);
}

} // namespace filesearch
