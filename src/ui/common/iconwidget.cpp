#include "ui/common/iconwidget.h"

#include "ui/common/resources.h"
#include "ui/common/theme.h"

#include <QCoreApplication>
#include <QFontDatabase>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPainter>
#include <QPixmapCache>

namespace ui {
namespace common {

namespace {

constexpr int kMinGlyphPx = 10;
/// Part of the square that a glyph's em takes: the widest glyphs are a quarter wider than high.
constexpr double kEmShare = 0.8;
constexpr int kDefaultSize = 20;

// Indexed by IconWidget::IconType.
constexpr ushort kGlyphs[] = {
    0xF015, 0xF1DA, 0xF0AD, 0xF013, 0xF0A0, 0xF07B, 0xF15B, 0xF009, 0xF002, 0xF04B, 0xF04C,
    0xF04D, 0xF0CA, 0xF3FD, 0xF1E5, 0xF3ED, 0xF059, 0xF47F, 0xF00D, 0xF1E0, 0xF0B0,
};
constexpr int kGlyphCount = sizeof(kGlyphs) / sizeof(kGlyphs[0]);
static_assert(kGlyphCount == IconWidget::Filter + 1, "one glyph for each icon type");

/// The oldest of the families has one weight only.
const char kFirstGeneration[] = "FontAwesome";

QString installedFamily()
{
    const char *const names[] = {"Font Awesome 6 Free Solid", "Font Awesome 6 Free",
                                 "Font Awesome 5 Free Solid", "Font Awesome 5 Free",
                                 kFirstGeneration};
    const QStringList installed = QFontDatabase().families();
    for (const char *name : names) {
        if (installed.contains(QLatin1String(name)))
            return QLatin1String(name);
    }
    return QString();
}

QString bundledFamily()
{
    initResources();
    const QString folders[] = {QStringLiteral(":/fonts/"), QCoreApplication::applicationDirPath() +
                                                               QLatin1String("/resources/fonts/")};
    const char *const files[] = {"fontawesome-5.15.4/otfs/Font Awesome 5 Free-Solid-900.otf",
                                 "fa-solid-900.otf"};
    for (const QString &folder : folders) {
        for (const char *file : files) {
            const int id = QFontDatabase::addApplicationFont(folder + QLatin1String(file));
            const QStringList families = QFontDatabase::applicationFontFamilies(id);
            if (!families.isEmpty())
                return families.first();
        }
    }
    qWarning("[IconWidget] No icon font could be loaded");
    return QString();
}

QFont iconFont(int pixelSize)
{
    const QString family = IconWidget::fontAwesomeFamily();
    QFont font(family);
    font.setPixelSize(pixelSize);
    // The solid style is the black weight of its family; without it the outlined one would be used.
    font.setWeight(family == QLatin1String(kFirstGeneration) ? QFont::Normal : QFont::Black);
    font.setStyleStrategy(QFont::NoFontMerging);
    return font;
}

} // namespace

IconWidget::IconWidget(IconType type, QWidget *parent)
    : QWidget(parent)
    , m_type(type)
    , m_color(ThemeColors::current().textPrimary)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

void IconWidget::setType(IconType type)
{
    m_type = type;
    update();
}

void IconWidget::setColor(const QColor &color)
{
    m_color = color;
    update();
}

QSize IconWidget::sizeHint() const
{
    return QSize(kDefaultSize, kDefaultSize);
}

QString IconWidget::glyphForType(IconType type)
{
    if (type < 0 || type >= kGlyphCount)
        return QString();
    return QString(QChar(kGlyphs[type]));
}

QString IconWidget::fontAwesomeFamily()
{
    static const QString kFamily = [] {
        const QString family = installedFamily();
        return family.isEmpty() ? bundledFamily() : family;
    }();
    return kFamily;
}

QString IconWidget::fontAwesomeFamilyName()
{
    return fontAwesomeFamily();
}

void IconWidget::paintIcon(QPainter &painter, IconType type, const QColor &color, int size)
{
    paintGlyph(painter, glyphForType(type), color, size);
}

void IconWidget::paintGlyph(QPainter &painter, const QString &glyph, const QColor &color, int size)
{
    if (glyph.isEmpty() || fontAwesomeFamily().isEmpty())
        return;
    const QFont font = iconFont(qMax(kMinGlyphPx, qRound(size * kEmShare)));
    // Centred by the ink, since the glyphs' advances and heights differ from what is seen.
    const QRectF ink = QFontMetricsF(font).tightBoundingRect(glyph);
    painter.save();
    painter.setRenderHint(QPainter::TextAntialiasing);
    painter.setFont(font);
    painter.setPen(color);
    painter.drawText(QPointF(size / 2.0, size / 2.0) - ink.center(), glyph);
    painter.restore();
}

QPixmap IconWidget::makePixmap(IconType type, const QColor &color, int size)
{
    return makeFontAwesomePixmap(glyphForType(type), color, size);
}

QPixmap IconWidget::makeFontAwesomePixmap(const QString &glyph, const QColor &color, int size)
{
    const int side = qMax(1, size);
    const qreal ratio = qGuiApp->devicePixelRatio();
    const QString key = QStringLiteral("icon/%1/%2/%3/%4")
                            .arg(glyph, color.name(QColor::HexArgb))
                            .arg(side)
                            .arg(ratio);
    QPixmap pixmap;
    if (QPixmapCache::find(key, &pixmap))
        return pixmap;
    pixmap = QPixmap(qRound(side * ratio), qRound(side * ratio));
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    paintGlyph(painter, glyph, color, side);
    painter.end();
    QPixmapCache::insert(key, pixmap);
    return pixmap;
}

void IconWidget::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    const int side = qMin(width(), height());
    painter.translate((width() - side) / 2.0, (height() - side) / 2.0);
    paintIcon(painter, m_type, m_color, side);
}

} // namespace common
} // namespace ui
