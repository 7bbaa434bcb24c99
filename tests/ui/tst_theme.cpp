#include "ui/common/layoutmetrics.h"
#include "ui/common/styletemplate.h"
#include "ui/common/theme.h"

#include <QApplication>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRawFont>
#include <QtTest>

#include <cmath>

using namespace ui::common;

namespace {

const ThemeType kTypes[] = {ThemeType::dark, ThemeType::light};

void applyTheme(ThemeType type, double scale)
{
    ThemeColors::init(type, scale);
    qApp->setPalette(buildPalette(type));
    qApp->setStyleSheet(buildAppStyleSheet(type));
}

QColor filledColor(const QString &marker, const ThemeColors &colors)
{
    return QColor(fillStyleTemplate(QLatin1Char('@') + marker + QLatin1Char('@'), colors));
}

QStringList warnings;

void collectWarnings(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type != QtDebugMsg && type != QtInfoMsg)
        warnings.append(message);
}

} // namespace

class TestTheme : public QObject
{
    Q_OBJECT

private slots:
    void paletteBeforeInit();
    void palette_data();
    void palette();
    void fontScale_data();
    void fontScale();
    void templateMarkers();
    void sheetHoldsEveryRole_data();
    void sheetHoldsEveryRole();
    void sheetsParse();
    void checkboxIndicator();
    void contrast_data();
    void contrast();
    void readableInk();
    void controlsKeepTheirText_data();
    void controlsKeepTheirText();
    void applicationFontHasChinese();
    void placeholderIsMuted();
};

void TestTheme::paletteBeforeInit()
{
    QCOMPARE(ThemeColors::current().type, ThemeType::dark);
    QCOMPARE(ThemeColors::current().accent, ThemeColors::dark().accent);
    const ThemeColors fresh;
    QVERIFY(!fresh.windowBackground.isValid());
    QVERIFY(!fresh.highlightText.isValid());
    QCOMPARE(fresh.type, ThemeType::light);
    QCOMPARE(fresh.fontScale, 1.0);
    ThemeColors::init(ThemeType::light, 1.25);
    QCOMPARE(ThemeColors::current().type, ThemeType::light);
    QCOMPARE(ThemeColors::current().surface, ThemeColors::light().surface);
    QCOMPARE(ThemeColors::current().fontScale, 1.25);
}

void TestTheme::palette_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("dark");
    QTest::addColumn<QString>("light");
    const auto row = [](const char *field, const char *dark, const char *light) {
        QTest::newRow(field) << QString::fromLatin1(field) << QString::fromLatin1(dark)
                             << QString::fromLatin1(light);
    };
    row("windowBackground", "#0a1322", "#f0f2f5");
    row("textOnAccent", "#eef7ff", "#ffffff");
    row("borderSubtle", "#1e3551", "#f3f4f6");
    row("titleBarCloseHover", "#4a2d34", "#fee2e2");
    row("successBorder", "#1d684f", "#a7f3d0");
    row("dangerText", "#ff7f8f", "#dc2626");
    row("highlightText", "#a8ff60", "#92400e");
}

void TestTheme::palette()
{
    QFETCH(QString, field);
    QFETCH(QString, dark);
    QFETCH(QString, light);
    QCOMPARE(ThemeColors::dark().byName(field).name(), dark);
    QCOMPARE(ThemeColors::light().byName(field).name(), light);
    QVERIFY(!ThemeColors::light().byName(field + QLatin1Char('x')).isValid());
}

void TestTheme::fontScale_data()
{
    QTest::addColumn<double>("scale");
    QTest::addColumn<int>("base");
    QTest::addColumn<int>("expected");
    QTest::newRow("unscaled") << 1.0 << 13 << 13;
    QTest::newRow("default rounds up") << 1.15 << 13 << 15;
    QTest::newRow("rounds down") << 1.1 << 13 << 14;
    QTest::newRow("too large") << 3.0 << 10 << 16;
    QTest::newRow("too small") << 0.1 << 20 << 17;
    QTest::newRow("upper bound") << 1.6 << 20 << 32;
    QTest::newRow("never nothing") << 1.0 << 0 << 1;
    QTest::newRow("never negative") << 1.0 << -5 << 1;
    QTest::newRow("not a number") << std::nan("") << 13 << 13;
    QTest::newRow("infinite") << HUGE_VAL << 10 << 16;
}

void TestTheme::fontScale()
{
    QFETCH(double, scale);
    QFETCH(int, base);
    QFETCH(int, expected);
    ThemeColors colors = ThemeColors::light();
    colors.fontScale = scale;
    QCOMPARE(colors.fontPx(base), expected);
}

void TestTheme::templateMarkers()
{
    ThemeColors colors = ThemeColors::dark();
    colors.fontScale = 1.4;
    QCOMPARE(fillStyleTemplate(QStringLiteral("a { color: @accent@; font-size: @10px@; }@border@"),
                               colors),
             QStringLiteral("a { color: #1f7ee8; font-size: 14px; }#203750"));
    QTest::ignoreMessage(QtWarningMsg, "[StyleTemplate] Unknown marker: @nothing@");
    QCOMPARE(fillStyleTemplate(QStringLiteral("x @nothing@ @surface@"), colors),
             QStringLiteral("x @nothing@ #101f34"));
}

void TestTheme::sheetHoldsEveryRole_data()
{
    QTest::addColumn<QString>("selector");
    const char *const selectors[] = {"#SurfacePanel",
                                     "#BottomToolbar",
                                     "#PageTitle",
                                     "#SectionTitle",
                                     "#SubtleText",
                                     "#LargeValue",
                                     "#TagLabel",
                                     "#PrimaryActionButton",
                                     "[role=\"primary\"]",
                                     "[role=\"danger\"]",
                                     "[role=\"warning\"]",
                                     "[role=\"success\"]",
                                     "[role=\"nav-active\"]",
                                     "[role=\"quiet\"]",
                                     "[role=\"icon\"]",
                                     "#SidebarPanel",
                                     "#PartitionCard[selected=\"true\"]",
                                     "#PartitionCard[dashed=\"true\"]",
                                     "#RecoveryWorkflowWindow",
                                     "'Microsoft YaHei'",
                                     ":/img/chevron-down.svg",
                                     ":/img/checkmark.svg"};
    for (const char *selector : selectors)
        QTest::newRow(selector) << QString::fromLatin1(selector);
}

void TestTheme::sheetHoldsEveryRole()
{
    QFETCH(QString, selector);
    for (const ThemeType type : kTypes)
        QVERIFY(buildAppStyleSheet(type).contains(selector));
}

void TestTheme::sheetsParse()
{
    for (const ThemeType type : kTypes) {
        const QString chrome = buildWindowChromeStyleSheet(type);
        const QString sheet = buildAppStyleSheet(type) + chrome;
        QVERIFY2(!sheet.contains(QLatin1Char('@')), "a marker stayed");
        QVERIFY(chrome.contains(QStringLiteral("WinCtlClose")));
        // Every image that a sheet names has to be in the resources.
        QRegularExpressionMatchIterator images =
            QRegularExpression(QStringLiteral("url\\(([^)]+)\\)")).globalMatch(sheet);
        QVERIFY(images.hasNext());
        while (images.hasNext()) {
            const QString path = images.next().captured(1);
            QVERIFY2(!QPixmap(path).isNull(), qPrintable(path));
        }
        warnings.clear();
        const QtMessageHandler previous = qInstallMessageHandler(collectWarnings);
        qApp->setStyleSheet(sheet);
        QWidget widget;
        widget.ensurePolished();
        qInstallMessageHandler(previous);
        QVERIFY2(warnings.isEmpty(), qPrintable(warnings.join(QLatin1Char('\n'))));
    }
    QVERIFY(buildAppStyleSheet(ThemeType::dark) != buildAppStyleSheet(ThemeType::light));
}

void TestTheme::checkboxIndicator()
{
    const ThemeColors colors = ThemeColors::light();
    const QString style = colors.checkboxIndicatorStyle(QStringLiteral("QTreeView"));
    QVERIFY(style.contains(QStringLiteral("QTreeView::indicator:checked")));
    QVERIFY(style.contains(QStringLiteral("width: 16px; height: 16px;")));
    QVERIFY(style.contains(QStringLiteral("border-radius: 4px")));
    QVERIFY(style.contains(QStringLiteral("background: ") + colors.accent.name()));
    QVERIFY(style.contains(QStringLiteral(":/img/checkmark.svg")));
}

void TestTheme::contrast_data()
{
    QTest::addColumn<QString>("ink");
    QTest::addColumn<QString>("ground");
    const auto row = [](const char *ink, const char *ground) {
        QTest::addRow("%s on %s", ink, ground)
            << QString::fromLatin1(ink) << QString::fromLatin1(ground);
    };
    for (const char *ground : {"windowBackground", "surface", "surfaceRaised", "inputBackground",
                               "headerBackground", "hoverBackground", "selectionBackground",
                               "infoBackground", "warningBorder", "successBorder"}) {
        row("textPrimary", ground);
    }
    row("textMuted", "surface");
    row("textMuted", "headerBackground");
    row("groundMuted", "windowBackground");
    row("titleBarText", "titleBarBackground");
    row("textOnAccent", "accentFill");
    row("textOnAccent", "accentFillHover");
    row("textOnAccent", "accentPressed");
    row("linkText", "surface");
    row("linkText", "windowBackground");
    row("linkText", "activeNavBackground");
    row("linkText", "hoverBackground");
    row("dangerText", "surface");
    row("dangerTone", "windowBackground");
    row("surface", "dangerText");
    for (const char *kind : {"success", "warning", "danger", "info"}) {
        row(qPrintable(QString::fromLatin1(kind) + QLatin1String("Ink")),
            qPrintable(QString::fromLatin1(kind) + QLatin1String("Background")));
    }
}

void TestTheme::contrast()
{
    QFETCH(QString, ink);
    QFETCH(QString, ground);
    for (const ThemeType type : kTypes) {
        const ThemeColors colors =
            type == ThemeType::dark ? ThemeColors::dark() : ThemeColors::light();
        const double ratio =
            ThemeColors::contrast(filledColor(ink, colors), filledColor(ground, colors));
        QVERIFY2(ratio >= 4.5, qPrintable(QString::number(ratio)));
    }
}

void TestTheme::readableInk()
{
    QCOMPARE(qRound(ThemeColors::contrast(Qt::black, Qt::white) * 10), 210);
    QCOMPARE(ThemeColors::contrast(Qt::white, Qt::white), 1.0);
    const ThemeColors light = ThemeColors::light();
    const ThemeColors dark = ThemeColors::dark();
    QCOMPARE(light.readable(light.warningText, light.warningBackground), light.textPrimary);
    QCOMPARE(dark.readable(dark.warningText, dark.warningBackground), dark.warningText);
}

void TestTheme::controlsKeepTheirText_data()
{
    QTest::addColumn<double>("scale");
    for (const double scale : {0.85, 1.0, 1.15, 1.4, 1.6})
        QTest::addRow("%.2f", scale) << scale;
}

void TestTheme::controlsKeepTheirText()
{
    QFETCH(double, scale);
    applyTheme(ThemeType::light, scale);

    QWidget window;
    auto *row = new QHBoxLayout(&window);
    auto *button = new QPushButton(QStringLiteral("龘恢复选中的文件"));
    auto *quiet = new QPushButton(QStringLiteral("打开所在目录"));
    quiet->setProperty("role", QStringLiteral("quiet"));
    auto *small = new QPushButton(QStringLiteral("好"));
    auto *edit = new QLineEdit(QStringLiteral("龘"));
    auto *combo = new QComboBox;
    combo->addItem(QStringLiteral("龘"));
    for (QWidget *widget : std::initializer_list<QWidget *>{button, quiet, small, edit, combo})
        row->addWidget(widget);
    // As narrow as the layout allows.
    window.resize(1, 1);
    window.show();

    const int line = button->fontMetrics().height();
    QCOMPARE(button->font().pixelSize(), ThemeColors::current().fontPx(13));
    for (QWidget *widget : std::initializer_list<QWidget *>{button, small, edit, combo}) {
        QCOMPARE(widget->height(), metrics::controlHeight());
        QVERIFY(widget->height() >= qMax(36, line + 4));
    }
    QVERIFY(quiet->height() >= qMax(32, line + 4));
    QVERIFY(button->width() >= button->fontMetrics().horizontalAdvance(button->text()) + 16);
    QVERIFY(quiet->width() >= quiet->fontMetrics().horizontalAdvance(quiet->text()) + 8);
    QVERIFY(small->width() >= 88);
    QVERIFY(metrics::rowHeight() >= qMax(40, line));
    QVERIFY(metrics::headerHeight() >= qMax(36, metrics::lineHeight(12)));

    QLabel title(QStringLiteral("标题"));
    title.setObjectName(QStringLiteral("PageTitle"));
    title.ensurePolished();
    QCOMPARE(title.font().pixelSize(), ThemeColors::current().fontPx(22));
}

void TestTheme::applicationFontHasChinese()
{
    QVERIFY(QRawFont::fromFont(applicationFont(), QFontDatabase::SimplifiedChinese)
                .supportsCharacter(QChar(0x58A8)));
    QCOMPARE(baseFontFamilies().first(), QStringLiteral("Microsoft YaHei"));
}

void TestTheme::placeholderIsMuted()
{
    applyTheme(ThemeType::light, 1.0);
    QLineEdit edit;
    edit.setPlaceholderText(QStringLiteral("按文件名或路径搜索..."));
    edit.resize(300, edit.sizeHint().height());
    const QImage image = edit.grab().toImage();
    // Entered text would reach the dark of textPrimary somewhere.
    int darkest = 255;
    for (int y = 6; y < image.height() - 6; ++y) {
        for (int x = 6; x < image.width() - 6; ++x)
            darkest = qMin(darkest, qGray(image.pixel(x, y)));
    }
    QVERIFY(darkest > qGray(ThemeColors::current().textPrimary.rgb()) + 20);
    QVERIFY(darkest < 200);
}

QTEST_MAIN(TestTheme)
#include "tst_theme.moc"
