#include "support/typing.h"
#include "ui/pages/keywordtaginput.h"

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>

class TestKeywordTagInput : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void turnsTypedTextIntoChips_data();
    void turnsTypedTextIntoChips();
    void commitsOnReturn();
    void pastesSeveralAtOnce();
    void signalsChipsAndFilterApart();
    void chipsGoByButtonAndBackspace();
    void clearsEverything();
    void showsItsFocus();
    void scrollsToTheNewestChip();

private:
    void type(const char *text) { support::typeInto(m_editor, QString::fromUtf8(text)); }
    QStringList chips() const;

    QScopedPointer<KeywordTagInput> m_input;
    QLineEdit *m_editor = nullptr;
};

void TestKeywordTagInput::init()
{
    m_input.reset(new KeywordTagInput);
    m_input->resize(400, 40);
    m_input->show();
    QVERIFY(QTest::qWaitForWindowActive(m_input.data()));
    m_editor = m_input->findChild<QLineEdit *>(QStringLiteral("KeywordTagEditor"));
    QVERIFY(m_editor);
    QTest::mouseClick(m_editor, Qt::LeftButton);
}

/// The labels that a person sees, in their order.
QStringList TestKeywordTagInput::chips() const
{
    QStringList texts;
    QWidget *row = m_input->findChild<QScrollArea *>()->widget();
    if (!row || !row->isVisible())
        return texts;
    const QList<QFrame *> frames = row->findChildren<QFrame *>(QStringLiteral("KeywordTagChip"));
    for (const QFrame *chip : frames)
        texts.append(chip->findChild<QLabel *>()->text());
    return texts;
}

void TestKeywordTagInput::turnsTypedTextIntoChips_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("shownChips");
    QTest::addColumn<QString>("pending");
    QTest::addColumn<QString>("keywordString");
    const auto row = [](const char *tag, const char *typed, const char *shown, const char *pending,
                        const char *all) {
        QTest::newRow(tag) << QString::fromUtf8(typed) << QString::fromUtf8(shown)
                           << QString::fromUtf8(pending) << QString::fromUtf8(all);
    };
    row("nothing", "", "", "", "");
    row("pending only", "x", "", "x", "x");
    row("both delimiters", "a,b;", "a|b", "", "a\nb");
    row("chip and pending", "y,x", "y", "x", "y\nx");
    row("blanks around", "  a b ,", "a b", "", "a b");
    row("only delimiters", ",;,", "", "", "");
    row("same but for case", "foo,Foo,", "foo", "", "foo");
    row("pending equals a chip", "foo,FOO", "foo", "FOO", "foo");
    row("Chinese", "季度,报告;", "季度|报告", "", "季度\n报告");
}

void TestKeywordTagInput::turnsTypedTextIntoChips()
{
    QFETCH(QString, typed);
    QFETCH(QString, shownChips);
    support::typeInto(m_editor, typed);
    QCOMPARE(chips().join(QLatin1Char('|')), shownChips);
    QTEST(m_editor->text(), "pending");
    QTEST(m_input->keywordString(), "keywordString");
}

void TestKeywordTagInput::commitsOnReturn()
{
    type(" 预算 ");
    QTest::keyClick(m_editor, Qt::Key_Return);
    type("x");
    QTest::keyClick(m_editor, Qt::Key_Enter);
    QTest::keyClick(m_editor, Qt::Key_Return);
    QCOMPARE(chips(), QStringList({QStringLiteral("预算"), QStringLiteral("x")}));
    QCOMPARE(m_editor->text(), QString());
}

void TestKeywordTagInput::pastesSeveralAtOnce()
{
    m_editor->insert(QStringLiteral("a;;b,,c"));
    QCOMPARE(chips(), QStringList({QStringLiteral("a"), QStringLiteral("b")}));
    QCOMPARE(m_editor->text(), QStringLiteral("c"));
}

void TestKeywordTagInput::signalsChipsAndFilterApart()
{
    QSignalSpy keywords(m_input.data(), &KeywordTagInput::keywordsChanged);
    QSignalSpy filter(m_input.data(), &KeywordTagInput::filterChanged);
    type("ab");
    QCOMPARE(keywords.count(), 0);
    QCOMPARE(filter.count(), 2);
    type(",");
    QCOMPARE(keywords.count(), 1);
    QCOMPARE(filter.count(), 3);
    type("AB");
    QTest::keyClick(m_editor, Qt::Key_Return);
    QCOMPARE(keywords.count(), 1);
    QCOMPARE(filter.count(), 6);
    m_input->addKeyword(QStringLiteral(" aB "));
    m_input->addKeyword(QString());
    QCOMPARE(keywords.count(), 1);
    m_input->removeKeyword(QStringLiteral("AB"));
    QCOMPARE(keywords.count(), 2);
    QCOMPARE(filter.count(), 7);
}

void TestKeywordTagInput::chipsGoByButtonAndBackspace()
{
    type("a,b,c,");
    QWidget *row = m_input->findChild<QScrollArea *>()->widget();
    const auto buttons = row->findChildren<QPushButton *>(QStringLiteral("KeywordTagRemove"));
    QCOMPARE(buttons.size(), 3);
    QCOMPARE(buttons.at(1)->text(), QStringLiteral("x"));
    QTest::mouseClick(buttons.at(1), Qt::LeftButton);
    QCOMPARE(chips(), QStringList({QStringLiteral("a"), QStringLiteral("c")}));

    type("z");
    QTest::keyClick(m_editor, Qt::Key_Backspace);
    QCOMPARE(chips().size(), 2);
    QTest::keyClick(m_editor, Qt::Key_Backspace);
    QCOMPARE(chips(), QStringList(QStringLiteral("a")));
    QTest::keyClick(m_editor, Qt::Key_Backspace);
    QTest::keyClick(m_editor, Qt::Key_Backspace);
    QCOMPARE(chips(), QStringList());
}

void TestKeywordTagInput::clearsEverything()
{
    type("a,b");
    QSignalSpy filter(m_input.data(), &KeywordTagInput::filterChanged);
    m_input->clearKeywords();
    QCOMPARE(m_input->keywords(), QStringList());
    QCOMPARE(m_editor->text(), QString());
    m_input->clearKeywords();
    QCOMPARE(filter.count(), 1);
}

void TestKeywordTagInput::showsItsFocus()
{
    QCOMPARE(m_input->property("focused").toBool(), true);
    m_editor->clearFocus();
    QCOMPARE(m_input->property("focused").toBool(), false);
    // The frame around the editor is the editor too.
    QTest::mouseClick(m_input.data(), Qt::LeftButton, Qt::NoModifier, QPoint(1, 1));
    QVERIFY(m_editor->hasFocus());
    QCOMPARE(m_input->property("focused").toBool(), true);
}

void TestKeywordTagInput::scrollsToTheNewestChip()
{
    const int height = m_input->sizeHint().height();
    for (int i = 0; i < 20; ++i)
        type(qPrintable(QStringLiteral("keyword-number-%1,").arg(i)));
    auto *scroll = m_input->findChild<QScrollArea *>();
    QVERIFY(scroll->width() <= m_input->width() / 2);
    QVERIFY(scroll->horizontalScrollBar()->maximum() > 0);
    QCOMPARE(scroll->horizontalScrollBar()->value(), scroll->horizontalScrollBar()->maximum());
    QVERIFY(m_input->sizeHint().height() <= height + 8);
}

QTEST_MAIN(TestKeywordTagInput)
#include "tst_keywordtaginput.moc"
