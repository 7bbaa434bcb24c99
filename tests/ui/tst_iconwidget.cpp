#include "ui/common/iconwidget.h"

#include <QFile>
#include <QRawFont>
#include <QtTest>

using ui::common::IconWidget;

namespace {

/// Smallest rectangle that holds everything drawn.
QRect inkOf(const QImage &image)
{
    QRect ink;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (qAlpha(image.pixel(x, y)) > 60)
                ink |= QRect(x, y, 1, 1);
        }
    }
    return ink;
}

} // namespace

class TestIconWidget : public QObject
{
    Q_OBJECT

private slots:
    void glyphs_data();
    void glyphs();
    void unknownType();
    void familyComesFromResources();
    void smallIcons();
    void widgetPaints();
};

void TestIconWidget::glyphs_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("codePoint");
    const int codePoints[] = {0xF015, 0xF1DA, 0xF0AD, 0xF013, 0xF0A0, 0xF07B, 0xF15B,
                              0xF009, 0xF002, 0xF04B, 0xF04C, 0xF04D, 0xF0CA, 0xF3FD,
                              0xF1E5, 0xF3ED, 0xF059, 0xF47F, 0xF00D, 0xF1E0, 0xF0B0};
    int type = 0;
    for (const int codePoint : codePoints) {
        QTest::addRow("%d", type) << type << codePoint;
        ++type;
    }
}

void TestIconWidget::glyphs()
{
    QFETCH(int, type);
    QFETCH(int, codePoint);
    const auto icon = static_cast<IconWidget::IconType>(type);
    QCOMPARE(IconWidget::glyphForType(icon), QString(QChar(codePoint)));

    const QColor color(10, 200, 30);
    const QImage image = IconWidget::makePixmap(icon, color, 32).toImage();
    QCOMPARE(image.size(), QSize(32, 32));
    const QRect ink = inkOf(image);
    QVERIFY2(ink.width() > 8 && ink.height() > 8, "nothing drawn");
    // Whole and in the middle.
    QVERIFY(QRect(0, 0, 32, 32).adjusted(1, 1, -1, -1).contains(ink));
    QVERIFY(qAbs(ink.left() + ink.right() - 31) <= 3);
    QVERIFY(qAbs(ink.top() + ink.bottom() - 31) <= 3);
    bool colored = false;
    for (int y = 0; y < 32 && !colored; ++y) {
        for (int x = 0; x < 32 && !colored; ++x)
            colored = image.pixelColor(x, y) == color;
    }
    QVERIFY(colored);
}

void TestIconWidget::unknownType()
{
    for (const int type : {-1, 21}) {
        const auto icon = static_cast<IconWidget::IconType>(type);
        QVERIFY(IconWidget::glyphForType(icon).isEmpty());
        QVERIFY(inkOf(IconWidget::makePixmap(icon, Qt::red, 16).toImage()).isNull());
    }
}

void TestIconWidget::familyComesFromResources()
{
    QVERIFY(QFile::exists(
        QStringLiteral(":/fonts/fontawesome-5.15.4/otfs/Font Awesome 5 Free-Solid-900.otf")));
    QVERIFY(QFile::exists(QStringLiteral(":/fonts/fa-solid-900.otf")));
    const QString family = IconWidget::fontAwesomeFamily();
    QVERIFY(family.startsWith(QStringLiteral("Font Awesome")));
    QCOMPARE(IconWidget::fontAwesomeFamilyName(), family);
    QFont font(family);
    font.setWeight(QFont::Black);
    QVERIFY(QRawFont::fromFont(font).supportsCharacter(QChar(0xF3ED)));
}

void TestIconWidget::smallIcons()
{
    // The glyph keeps 10 pixels even where less is asked for.
    const QRect ink =
        inkOf(IconWidget::makeFontAwesomePixmap(QString(QChar(0xF04D)), Qt::red, 12).toImage());
    QVERIFY(ink.height() >= 8);
    QCOMPARE(IconWidget::makePixmap(IconWidget::Home, Qt::red, 0).size(), QSize(1, 1));
}

void TestIconWidget::widgetPaints()
{
    IconWidget widget(IconWidget::Stop);
    widget.setFixedSize(40, 24);
    widget.setColor(Qt::red);
    const auto redIn = [&widget](const QRect &area) {
        const QImage image = widget.grab().toImage();
        for (int y = area.top(); y <= area.bottom(); ++y) {
            for (int x = area.left(); x <= area.right(); ++x) {
                if (image.pixelColor(x, y) == QColor(Qt::red))
                    return true;
            }
        }
        return false;
    };
    QVERIFY(redIn(QRect(19, 11, 2, 2)));
    QVERIFY(!redIn(QRect(0, 0, 8, 24)));
    widget.setType(IconWidget::Close);
    QCOMPARE(widget.type(), IconWidget::Close);
    QVERIFY(!redIn(QRect(13, 11, 2, 2)));
}

QTEST_MAIN(TestIconWidget)
#include "tst_iconwidget.moc"
