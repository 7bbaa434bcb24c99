#pragma once

#include <QColor>
#include <QPixmap>
#include <QString>
#include <QWidget>

class QPainter;

namespace ui {
namespace common {

/// One Font Awesome solid glyph as a widget, and the painting of such glyphs for everyone else.
class IconWidget : public QWidget
{
    Q_OBJECT

public:
    /// The numbers are fixed: navigation tables refer to them.
    enum IconType {
        Home = 0,
        History = 1,
        Wrench = 2,
        Gear = 3,
        Drive = 4,
        Folder = 5,
        File = 6,
        Grid = 7,
        Search = 8,
        Play = 9,
        Pause = 10,
        Stop = 11,
        List = 12,
        Gauge = 13,
        Binoculars = 14,
        Shield = 15,
        Question = 16,
        Seal = 17,
        Close = 18,
        Share = 19,
        Filter = 20,
    };

    explicit IconWidget(IconType type, QWidget *parent = nullptr);

    void setType(IconType type);
    void setColor(const QColor &color);
    IconType type() const { return m_type; }

    QSize sizeHint() const override;

    static QString glyphForType(IconType type);
    /// Family that holds the glyphs: an installed one, else the font in the resources, which is
    /// loaded on first use. Empty when there is none.
    static QString fontAwesomeFamily();
    static QString fontAwesomeFamilyName();
    /// Draws the glyph centred in a square of `size` at the painter's origin, at least 10 pixels
    /// high.
    static void paintIcon(QPainter &painter, IconType type, const QColor &color, int size);
    static void paintGlyph(QPainter &painter, const QString &glyph, const QColor &color, int size);
    /// Pixmaps are made for the screen's pixel ratio; `size` is in logical pixels.
    static QPixmap makePixmap(IconType type, const QColor &color, int size);
    static QPixmap makeFontAwesomePixmap(const QString &glyph, const QColor &color, int size);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    IconType m_type;
    QColor m_color;
};

} // namespace common
} // namespace ui
