#include <QDirIterator>
#include <QRegularExpression>
#include <QtTest>

namespace {

/// Matches a colour that is written out instead of taken from the palette.
QRegularExpression strayColor()
{
    const QString named = QStringLiteral(
        "(?:white|black|red|green|blue|cyan|magenta|yellow|gr[ae]y|dark\\w+|light\\w+)");
    const QStringList forms = {
        QStringLiteral("\"#[0-9a-fA-F]{3,4}\""),
        QStringLiteral("#(?:[0-9a-fA-F]{8}|[0-9a-fA-F]{6})(?![0-9a-zA-Z_])"),
        QStringLiteral("\\b(?:rgb|hsv|hsl)a?\\s*\\(\\s*[0-9%]"),
        QStringLiteral(
            "\\bQColor(?:\\s+\\w+)?\\s*[({]\\s*(?:[0-9]|\"|QStringLiteral|QLatin1String)"),
        QStringLiteral("\\bQColor::from\\w+\\s*\\("),
        QStringLiteral("\\bq[Rr]gba?\\s*\\("),
        QStringLiteral("\\bQt::") + named + QStringLiteral("\\b"),
        QStringLiteral("(?:color|background|border[a-z-]*)\\s*:[^;@]*\\b") + named +
            QStringLiteral("\\s*;"),
    };
    return QRegularExpression(forms.join(QLatin1Char('|')));
}

} // namespace

/// Colours come from the palette only: one written out elsewhere is right in one theme at best.
class TestColorLiterals : public QObject
{
    Q_OBJECT

private slots:
    void finder_data();
    void finder();
    void sources();
};

void TestColorLiterals::finder_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("stray");
    const auto row = [](const char *line, bool stray) {
        QTest::newRow(line) << QString::fromLatin1(line) << stray;
    };
    row("color: #1f2937;", true);
    row("\"#fff\"", true);
    row("background: rgba(0, 0, 0, 20);", true);
    row("QColor shadow(0, 0, 0, 80);", true);
    row("painter.setPen(QColor(QStringLiteral(name)));", true);
    row("painter.fillRect(rect, Qt::white);", true);
    row("border: 1px solid lightgray;", true);
    row("QColor::fromRgb(1, 2, 3)", true);
    row("pixmap.fill(Qt::transparent);", false);
    row("QWidget#AddRow { color: @textPrimary@; }", false);
    row("const QColor ink = ThemeColors::current().accent;", false);
    row("background: transparent;", false);
    row("QColor accentFill() const;", false);
}

void TestColorLiterals::finder()
{
    QFETCH(QString, line);
    QFETCH(bool, stray);
    QCOMPARE(strayColor().match(line).hasMatch(), stray);
}

void TestColorLiterals::sources()
{
    const QString root = QStringLiteral(MORVANE_SOURCE_DIR);
    const QString table = root + QStringLiteral("/ui/common/theme.cpp");
    const QRegularExpression stray = strayColor();
    QStringList found;
    int files = 0;
    for (const char *room : {"/ui", "/app"}) {
        QDirIterator sources(root + QLatin1String(room),
                             {QStringLiteral("*.cpp"), QStringLiteral("*.h")}, QDir::Files,
                             QDirIterator::Subdirectories);
        while (sources.hasNext()) {
            QFile file(sources.next());
            QVERIFY(file.open(QIODevice::ReadOnly));
            const QString text = QString::fromUtf8(file.readAll());
            ++files;
            if (file.fileName() == table) {
                QVERIFY(stray.match(text).hasMatch());
                continue;
            }
            const QRegularExpressionMatch match = stray.match(text);
            if (match.hasMatch())
                found.append(file.fileName() + QLatin1String(": ") + match.captured());
        }
    }
    QVERIFY(files > 20);
    QVERIFY2(found.isEmpty(), qPrintable(found.join(QLatin1Char('\n'))));
}

QTEST_GUILESS_MAIN(TestColorLiterals)
#include "tst_colorliterals.moc"
