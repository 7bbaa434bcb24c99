#include "app/mainwindow.h"
#include "app/navigation.h"
#include "ui/common/theme.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QStackedWidget>
#include <QTextDocument>
#include <QtTest>

using core::AppMode;
using ui::common::ThemeColors;
using ui::common::ThemeType;

Q_DECLARE_METATYPE(core::AppMode)
Q_DECLARE_METATYPE(ui::common::ThemeType)

namespace {

MainWindowOptions surroundings()
{
    MainWindowOptions options;
    options.trayProbe = [] {
        return false;
    };
    options.updateServer = QUrl(QStringLiteral("http://127.0.0.1:9"));
    return options;
}

QString textOf(const QWidget *widget)
{
    if (const auto *label = qobject_cast<const QLabel *>(widget)) {
        const bool isRich = Qt::mightBeRichText(label->text());
        return label->pixmap() ? QString()
               : isRich        ? QTextDocument(label->text()).toPlainText()
                               : label->text();
    }
    if (const auto *button = qobject_cast<const QAbstractButton *>(widget))
        return button->text();
    if (const auto *combo = qobject_cast<const QComboBox *>(widget))
        return combo->currentText();
    const auto *edit = qobject_cast<const QLineEdit *>(widget);
    return edit ? edit->text() + edit->placeholderText() : QString();
}

// The colour that most of the area has, and the one that stands out from it most: a stroke of a
// letter reaches the full ink somewhere.
double drawnContrast(const QImage &area)
{
    QHash<QRgb, int> counts;
    for (int y = 0; y < area.height(); ++y) {
        for (int x = 0; x < area.width(); ++x)
            ++counts[area.pixel(x, y)];
    }
    QRgb ground = 0;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it) {
        if (it.value() > counts.value(ground))
            ground = it.key();
    }
    double best = 1.0;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it)
        best = qMax(best, ThemeColors::contrast(QColor(it.key()), QColor(ground)));
    return best;
}

// Of a widget's own area without its border, in the picture of the window.
QImage innerArea(const QImage &picture, const QWidget *window, const QWidget *widget)
{
    const QRect rect(widget->mapTo(window, QPoint()), widget->size());
    return picture.copy(rect.adjusted(3, 3, -3, -3) & picture.rect());
}

} // namespace

/// Text on the pages is drawn so that it can be read, in both run modes and both themes.
class TestDrawnContrast : public QObject
{
    Q_OBJECT

private slots:
    void pages_data();
    void pages();
};

void TestDrawnContrast::pages_data()
{
    QTest::addColumn<AppMode>("mode");
    QTest::addColumn<ThemeType>("theme");
    QTest::newRow("normal, light") << AppMode::normal << ThemeType::light;
    QTest::newRow("normal, dark") << AppMode::normal << ThemeType::dark;
    QTest::newRow("recovery, light") << AppMode::livecd << ThemeType::light;
    QTest::newRow("recovery, dark") << AppMode::livecd << ThemeType::dark;
}

void TestDrawnContrast::pages()
{
    QFETCH(AppMode, mode);
    QFETCH(ThemeType, theme);
    ThemeColors::init(theme, 1.0);
    QApplication::setFont(ui::common::applicationFont());
    QApplication::setPalette(ui::common::buildPalette(theme));
    qApp->setStyleSheet(ui::common::buildAppStyleSheet(theme));
    MainWindow window(mode, nullptr, surroundings());
    window.resize(1280, 800);
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    const auto *stack = window.findChild<QStackedWidget *>(QStringLiteral("MainPagesStack"));
    QStringList pale;
    int seen = 0;
    for (int i = 0; i < stack->count(); ++i) {
        window.switchToPage(i);
        const QImage picture = window.grab().toImage().convertToFormat(QImage::Format_RGB32);
        const QList<QWidget *> widgets = stack->currentWidget()->findChildren<QWidget *>();
        for (const QWidget *widget : widgets) {
            const bool isShown = widget->isVisible() && !widget->visibleRegion().isEmpty() &&
                                 widget->visibleRegion().boundingRect() == widget->rect();
            if (!isShown || textOf(widget).trimmed().isEmpty())
                continue;
            ++seen;
            const double contrast = drawnContrast(innerArea(picture, &window, widget));
            if (contrast < ThemeColors::kMinTextContrast)
                pale << QStringLiteral("%1: %2 \"%3\" %4")
                            .arg(i)
                            .arg(widget->objectName(), textOf(widget).left(20))
                            .arg(contrast, 0, 'f', 2);
        }
    }
    QVERIFY(seen > 40);
    QVERIFY2(pale.isEmpty(), qPrintable(pale.join(QLatin1Char('\n'))));
}

QTEST_MAIN(TestDrawnContrast)
#include "tst_drawncontrast.moc"
