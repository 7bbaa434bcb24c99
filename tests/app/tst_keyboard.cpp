#include "app/buttoninteractionfilter.h"
#include "app/keyboardshortcuts.h"
#include "app/mainwindow.h"
#include "app/navigation.h"
#include "support/modaldriver.h"
#include "ui/common/accessibility.h"
#include "ui/common/appnoticedialog.h"
#include "ui/common/celldelegate.h"
#include "ui/common/celltablemodel.h"
#include "ui/common/keyroles.h"
#include "ui/common/rowmenu.h"
#include "ui/common/theme.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QAbstractSpinBox>
#include <QAccessible>
#include <QButtonGroup>
#include <QClipboard>
#include <QComboBox>
#include <QDialog>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTableView>
#include <QVBoxLayout>
#include <QtTest>

using core::AppMode;
using support::ModalDriver;
using ui::common::AppNoticeDialog;
using ui::common::CellTableModel;
using ui::common::KeyRole;

Q_DECLARE_METATYPE(core::AppMode)

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

/// A page as the program's keys see it: one control of each kind, and a table of two rows.
struct Page : QWidget
{
    Page()
    {
        auto *column = new QVBoxLayout(this);
        for (QWidget *control : QWidgetList{combo, filter, refresh, main, remove, table})
            column->addWidget(control);
        combo->addItems({QStringLiteral("1"), QStringLiteral("2")});
        refresh->setFocusPolicy(Qt::NoFocus);
        main->setProperty("role", QStringLiteral("primary"));
        ui::common::setKeyRole(filter, KeyRole::Search);
        ui::common::setKeyRole(refresh, KeyRole::Refresh);
        ui::common::setKeyRole(remove, KeyRole::Remove);
        auto *model = new CellTableModel({{QStringLiteral("路径")}, {QString()}}, table);
        model->setActions({QStringLiteral("打开"), QStringLiteral("删除")}, 1);
        model->setRows({{QStringLiteral("a"), {QStringLiteral("/home/甲")}},
                        {QStringLiteral("b"), {QStringLiteral("/home/乙")}}});
        delegate = ui::common::setUpCellTable(table);
        table->setModel(model);
        table->setCurrentIndex(model->index(0, 0));
        show();
        activateWindow();
    }

    QComboBox *combo = new QComboBox;
    QLineEdit *filter = new QLineEdit;
    QPushButton *refresh = new QPushButton(QStringLiteral("刷新"));
    QPushButton *main = new QPushButton(QStringLiteral("开始"));
    QPushButton *remove = new QPushButton(QStringLiteral("删除选中"));
    QTableView *table = new QTableView;
    ui::common::CellDelegate *delegate = nullptr;
};

bool isControl(const QWidget *widget)
{
    return qobject_cast<const QAbstractButton *>(widget) ||
           qobject_cast<const QComboBox *>(widget) || qobject_cast<const QLineEdit *>(widget) ||
           qobject_cast<const QAbstractSpinBox *>(widget) ||
           (qobject_cast<const QAbstractItemView *>(widget) && widget->parentWidget() &&
            !widget->inherits("QHeaderView")) ||
           widget->focusPolicy() == Qt::StrongFocus;
}

// What a screen reader would not be able to tell about the controls that show.
QStringList gaps(const QWidget *root)
{
    QStringList found;
    const QList<QWidget *> widgets = root->findChildren<QWidget *>();
    for (QWidget *widget : widgets) {
        const bool isInner = widget->objectName().startsWith(QLatin1String("qt_"));
        if (!widget->isVisible() || isInner || !isControl(widget))
            continue;
        QAccessibleInterface *seen = QAccessible::queryAccessibleInterface(widget);
        if (!seen || seen->role() == QAccessible::NoRole || seen->role() == QAccessible::Client ||
            seen->text(QAccessible::Name).isEmpty())
            found.append(QStringLiteral("%1 %2").arg(
                QString::fromLatin1(widget->metaObject()->className()), widget->objectName()));
    }
    return found;
}

// Editors inside spin boxes, the icons of line edits, and the buttons of the title bar, which the
// window manager's keys stand for.
bool isPartOfControl(const QWidget *widget)
{
    const QWidget *parent = widget->parentWidget();
    return widget->objectName().startsWith(QLatin1String("qt_")) ||
           widget->objectName().startsWith(QLatin1String("WinCtl")) ||
           qobject_cast<const QAbstractSpinBox *>(parent) ||
           qobject_cast<const QLineEdit *>(parent) || qobject_cast<const QComboBox *>(parent) ||
           widget->inherits("QHeaderView");
}

// Of an exclusive choice Tab stops at one; the arrows lead to the others.
bool isChosenBeside(const QWidget *widget)
{
    const auto *button = qobject_cast<const QAbstractButton *>(widget);
    return button && button->group() && button->group()->exclusive() && !button->isChecked();
}

} // namespace

class TestKeyboard : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QApplication::setQuitOnLastWindowClosed(false);
        ui::common::ThemeColors::init(ui::common::ThemeType::light, 1.0);
        qApp->installEventFilter(&m_filter);
    }
    void cleanup() { QAccessible::setActive(false); }

    void pageKeys_data();
    void pageKeys();
    void listKeys();
    void escapeEmptiesTheFilterOnly();
    void rowMenuByKey();
    void dialogsKeepTheirKeys();
    void focusOfButtons();
    void questionsAreSafe();
    void roles();
    void windows_data();
    void windows();
    void tabReachesAll_data() { windows_data(); }
    void tabReachesAll();

private:
    ButtonInteractionFilter m_filter;
};

void TestKeyboard::pageKeys_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("modifiers");
    QTest::addColumn<QString>("effect");
    const auto row = [](const char *name, int key, int modifiers, const char *effect) {
        QTest::newRow(name) << key << modifiers << QString::fromLatin1(effect);
    };
    row("page", Qt::Key_2, Qt::ControlModifier, "page 1");
    row("page, keypad", Qt::Key_9, Qt::ControlModifier | Qt::KeypadModifier, "page 8");
    row("help", Qt::Key_F1, Qt::NoModifier, "help");
    row("refresh", Qt::Key_F5, Qt::NoModifier, "refresh");
    row("main action", Qt::Key_Return, Qt::ControlModifier, "main");
    row("search", Qt::Key_F, Qt::ControlModifier, "search");
}

void TestKeyboard::pageKeys()
{
    QFETCH(int, key);
    QFETCH(int, modifiers);
    QFETCH(QString, effect);
    KeyboardShortcuts shortcuts(nullptr);
    Page page;
    QVERIFY(QTest::qWaitForWindowActive(&page));
    QStringList effects;
    connect(&shortcuts, &KeyboardShortcuts::pageRequested, this,
            [&](int index) { effects << QStringLiteral("page %1").arg(index); });
    connect(&shortcuts, &KeyboardShortcuts::helpRequested, this,
            [&] { effects << QStringLiteral("help"); });
    connect(page.refresh, &QPushButton::clicked, this,
            [&] { effects << QStringLiteral("refresh"); });
    connect(page.main, &QPushButton::clicked, this, [&] { effects << QStringLiteral("main"); });

    // The same from a box that knows digits, a field that knows letters, and a list.
    for (QWidget *from : QWidgetList{page.combo, page.filter, page.table}) {
        effects.clear();
        from->setFocus();
        QTest::keyClick(from, Qt::Key(key), Qt::KeyboardModifiers(modifiers));
        if (page.filter->hasFocus() && key == Qt::Key_F)
            effects << QStringLiteral("search");
        QCOMPARE(effects, QStringList{effect});
        QCOMPARE(page.combo->currentIndex(), 0);
        QVERIFY(page.filter->text().isEmpty());
    }
}

void TestKeyboard::listKeys()
{
    KeyboardShortcuts shortcuts(nullptr);
    Page page;
    QVERIFY(QTest::qWaitForWindowActive(&page));
    page.table->setFocus();
    QTest::keyClick(page.table, Qt::Key_C, Qt::ControlModifier);
    QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("/home/甲"));
    QTest::keyClick(page.table, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(page.table, Qt::Key_C, Qt::ControlModifier);
    QCOMPARE(QApplication::clipboard()->text(), QStringLiteral("/home/甲\n/home/乙"));

    QSignalSpy removed(page.remove, &QPushButton::clicked);
    QSignalSpy acted(page.delegate, &ui::common::CellDelegate::actionTriggered);
    QTest::keyClick(page.table, Qt::Key_Delete);
    QCOMPARE(removed.count(), 1);
    QCOMPARE(acted.count(), 0);
    // Without a button for the selection, the row's own.
    page.remove->hide();
    QTest::keyClick(page.table, Qt::Key_Delete);
    QCOMPARE(removed.count(), 1);
    QCOMPARE(acted.count(), 1);
    QCOMPARE(acted.first().at(1).toInt(), 1);
    // In a field the key belongs to the text.
    page.remove->show();
    page.filter->setFocus();
    page.filter->setText(QStringLiteral("ab"));
    page.filter->setCursorPosition(0);
    QTest::keyClick(page.filter, Qt::Key_Delete);
    QCOMPARE(page.filter->text(), QStringLiteral("b"));
    QCOMPARE(removed.count(), 1);
}

void TestKeyboard::escapeEmptiesTheFilterOnly()
{
    KeyboardShortcuts shortcuts(nullptr);
    Page page;
    QVERIFY(QTest::qWaitForWindowActive(&page));
    page.filter->setFocus();
    page.filter->setText(QStringLiteral("报告"));
    QTest::keyClick(page.filter, Qt::Key_Escape);
    QVERIFY(page.filter->text().isEmpty());
    QTest::keyClick(page.filter, Qt::Key_Escape);
    QVERIFY(page.isVisible());
}

void TestKeyboard::rowMenuByKey()
{
    KeyboardShortcuts shortcuts(nullptr);
    Page page;
    QVERIFY(QTest::qWaitForWindowActive(&page));
    page.table->setFocus();
    QSignalSpy acted(page.delegate, &ui::common::CellDelegate::actionTriggered);
    QStringList texts;
    QTimer::singleShot(0, this, [&texts] {
        auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        QVERIFY(menu);
        const QList<QAction *> actions = menu->actions();
        for (const QAction *action : actions)
            texts << action->text();
        QTest::keyClick(menu, Qt::Key_Down);
        QTest::keyClick(menu, Qt::Key_Down);
        QTest::keyClick(menu, Qt::Key_Return);
    });
    QContextMenuEvent event(QContextMenuEvent::Keyboard, QPoint());
    QCoreApplication::sendEvent(page.table, &event);
    QCOMPARE(texts, (QStringList{QStringLiteral("打开"), QStringLiteral("删除"),
                                 QStringLiteral("复制"), QStringLiteral("全选")}));
    QCOMPARE(acted.count(), 1);
    QCOMPARE(acted.first().at(1).toInt(), 1);
}

void TestKeyboard::dialogsKeepTheirKeys()
{
    KeyboardShortcuts shortcuts(nullptr);
    QSignalSpy pages(&shortcuts, &KeyboardShortcuts::pageRequested);
    ModalDriver driver([](QWidget *dialog) {
        QTest::keyClick(dialog, Qt::Key_1, Qt::ControlModifier);
        QTest::keyClick(dialog, Qt::Key_Escape);
    });
    QVERIFY(!AppNoticeDialog::confirm(nullptr, QStringLiteral("问"), QStringLiteral("?")));
    QVERIFY(driver.handled());
    QCOMPARE(pages.count(), 0);
}

void TestKeyboard::focusOfButtons()
{
    QWidget page;
    auto *plain = new QPushButton(QStringLiteral("普通"), &page);
    auto *stop = new QPushButton(QStringLiteral("选择"), &page);
    ui::common::setTabStop(stop);
    page.show();
    QCOMPARE(plain->focusPolicy(), Qt::NoFocus);
    QVERIFY(stop->focusPolicy() & Qt::TabFocus);

    QDialog dialog;
    auto *answer = new QPushButton(QStringLiteral("好"), &dialog);
    dialog.show();
    QVERIFY(answer->focusPolicy() & Qt::TabFocus);

    // A screen reader that comes later finds the buttons, too.
    QAccessible::setActive(true);
    m_filter.accessibilityActiveChanged(true);
    QVERIFY(plain->focusPolicy() & Qt::TabFocus);
    QAccessible::setActive(false);

    m_filter.setKeyboardNavigation(true);
    QPushButton wanted(QStringLiteral("按键"));
    wanted.show();
    m_filter.setKeyboardNavigation(false);
    QVERIFY(wanted.focusPolicy() & Qt::TabFocus);
}

void TestKeyboard::questionsAreSafe()
{
    const auto ask = [](const QList<int> &keys) {
        ModalDriver driver([&keys](QWidget *dialog) {
            auto *verb = dialog->findChild<QPushButton *>(QStringLiteral("NoticeOkBtn"));
            QCOMPARE(dialog->windowTitle(), QStringLiteral("确认删除"));
            QCOMPARE(verb->text(), QStringLiteral("永久删除"));
            QCOMPARE(verb->property("role").toString(), QStringLiteral("danger"));
            QVERIFY(!verb->isDefault());
            for (int key : keys)
                QTest::keyClick(dialog->focusWidget() ? dialog->focusWidget() : dialog,
                                Qt::Key(key));
        });
        const bool agreed = AppNoticeDialog::confirmDestruction(
            nullptr, QStringLiteral("确认删除"), QStringLiteral("?"), QStringLiteral("永久删除"));
        return driver.handled() && agreed;
    };
    QVERIFY(!ask({Qt::Key_Return}));
    QVERIFY(!ask({Qt::Key_Escape}));
    QVERIFY(ask({Qt::Key_Tab, Qt::Key_Return}));
}

void TestKeyboard::roles()
{
    QFrame card;
    card.setProperty("selected", true);
    ui::common::setAccessibleRole(&card, QAccessible::RadioButton);
    card.setAccessibleName(QStringLiteral("系统盘"));
    QAccessibleInterface *seen = QAccessible::queryAccessibleInterface(&card);
    QVERIFY(seen);
    QCOMPARE(seen->role(), QAccessible::RadioButton);
    QCOMPARE(seen->text(QAccessible::Name), QStringLiteral("系统盘"));
    QVERIFY(seen->state().checked);
    card.setProperty("selected", false);
    QVERIFY(!seen->state().checked);

    QPushButton choice(QStringLiteral("深度扫描"));
    choice.setCheckable(true);
    ui::common::setAccessibleRole(&choice, QAccessible::RadioButton);
    seen = QAccessible::queryAccessibleInterface(&choice);
    QCOMPARE(seen->text(QAccessible::Name), QStringLiteral("深度扫描"));
    QVERIFY(seen->actionInterface());
    seen->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    QVERIFY(choice.isChecked() && seen->state().checked);
}

void TestKeyboard::windows_data()
{
    QTest::addColumn<AppMode>("mode");
    QTest::newRow("normal") << AppMode::normal;
    QTest::newRow("recovery") << AppMode::livecd;
}

void TestKeyboard::windows()
{
    QFETCH(AppMode, mode);
    MainWindow window(mode, nullptr, surroundings());
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    auto *stack = window.findChild<QStackedWidget *>(QStringLiteral("MainPagesStack"));
    QStringList missing;
    for (int i = 0; i < stack->count(); ++i) {
        QWidget *from = window.focusWidget() ? window.focusWidget() : &window;
        QTest::keyClick(from, Qt::Key(Qt::Key_1 + i), Qt::ControlModifier);
        QCOMPARE(stack->currentIndex(), i);
        const QStringList found = gaps(&window);
        for (const QString &gap : found)
            missing << QStringLiteral("%1: %2").arg(i).arg(gap);
    }
    QCOMPARE(missing.join(QLatin1Char('\n')), QString());

    QTest::keyClick(window.focusWidget() ? window.focusWidget() : &window, Qt::Key_F1);
    QCOMPARE(stack->currentIndex(), window.pageIndexForModule(QStringLiteral("help")));
    QTest::keyClick(&window, Qt::Key_Escape);
    QVERIFY(window.isVisible());
}

void TestKeyboard::tabReachesAll()
{
    QFETCH(AppMode, mode);
    m_filter.setKeyboardNavigation(true);
    MainWindow window(mode, nullptr, surroundings());
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    const auto *stack = window.findChild<QStackedWidget *>(QStringLiteral("MainPagesStack"));
    QStringList missed;
    for (int i = 0; i < stack->count(); ++i) {
        window.switchToPage(i);
        QSet<QWidget *> reached;
        // More than any page has stops.
        for (int presses = 0; presses < 120; ++presses) {
            QWidget *from = window.focusWidget() ? window.focusWidget() : &window;
            QTest::keyClick(from, Qt::Key_Tab);
            reached.insert(window.focusWidget());
        }
        const QList<QWidget *> widgets = window.findChildren<QWidget *>();
        for (QWidget *widget : widgets) {
            const bool isStop = widget->isVisible() && widget->isEnabled() && isControl(widget) &&
                                !widget->focusProxy() && !isPartOfControl(widget);
            if (isStop && !reached.contains(widget) && !isChosenBeside(widget))
                missed << QStringLiteral("%1: %2 %3")
                              .arg(i)
                              .arg(QString::fromLatin1(widget->metaObject()->className()),
                                   widget->objectName());
        }
    }
    m_filter.setKeyboardNavigation(false);
    QCOMPARE(missed.join(QLatin1Char('\n')), QString());
}

QTEST_MAIN(TestKeyboard)
#include "tst_keyboard.moc"
