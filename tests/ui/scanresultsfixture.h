#pragma once

#include "support/modaldriver.h"
#include "ui/pages/scanresultspage.h"

#include <QHeaderView>
#include <QJsonArray>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QTableView>
#include <QTreeView>
#include <QtTest>

/// A scan results page on screen, and the hands of the person before it.
class ScanResultsFixture
{
public:
    /// Column numbers of the table.
    enum Column { Check, Name, Detail, Size, Type, Time, Path, Source, Integrity, Chance };

    ScanResultsFixture()
    {
        m_page.resize(1280, 768);
        m_page.show();
    }

    ScanResultsPage *page() { return &m_page; }
    QTableView *table() const { return child<QTableView>("ScanResultsTable"); }
    QTreeView *tree() const { return child<QTreeView>("ScanTree"); }
    template <typename T>
    T *child(const char *name) const
    {
        return m_page.findChild<T *>(QLatin1String(name));
    }
    QString label(const char *name) const { return child<QLabel>(name)->text(); }
    void press(const char *name) { QTest::mouseClick(child<QPushButton>(name), Qt::LeftButton); }

    void startScan()
    {
        m_page.initForScan(QStringLiteral("/dev/sda1"), QStringLiteral("ext4"),
                           QStringLiteral("0123456789"));
    }
    static QJsonObject file(const QString &id, const QString &path, int score = 50,
                            const QJsonObject &more = QJsonObject())
    {
        const QString name = path.section(QLatin1Char('/'), -1);
        QJsonObject object = {
            {QStringLiteral("fileId"), id},
            {QStringLiteral("name"), name},
            {QStringLiteral("path"), path},
            {QStringLiteral("type"), name.section(QLatin1Char('.'), -1).toUpper()},
            {QStringLiteral("size"), QStringLiteral("1.0 KB")},
            {QStringLiteral("sizeBytes"), 1024},
            {QStringLiteral("probability"), QStringLiteral("良好")},
            {QStringLiteral("source"), QStringLiteral("metadata")},
            {QStringLiteral("contiguity"), 1.0},
            {QStringLiteral("probScore"), score}};
        for (auto value = more.begin(); value != more.end(); ++value)
            object.insert(value.key(), value.value());
        return object;
    }
    /// `count` files "f<number>" with falling scores from `score` on, all below /many.
    static QJsonArray manyFiles(int count, int score, const QString &prefix = QStringLiteral("f"))
    {
        QJsonArray files;
        for (int i = 0; i < count; ++i) {
            const QString id = prefix + QString::number(i);
            files.append(file(id, QStringLiteral("/many/%1.txt").arg(id), score - i));
        }
        return files;
    }

    QString text(int row, int column) const
    {
        return table()->model()->index(row, column).data().toString();
    }
    QStringList names() const
    {
        QStringList names;
        for (int row = 0; row < table()->model()->rowCount(); ++row)
            names.append(text(row, Name));
        return names;
    }
    bool isTicked(int row) const
    {
        return table()->model()->index(row, Check).data(Qt::UserRole).toBool();
    }
    void clickCell(int row, int column)
    {
        const QModelIndex index = table()->model()->index(row, column);
        table()->scrollTo(index);
        QTest::mouseClick(table()->viewport(), Qt::LeftButton, Qt::NoModifier,
                          table()->visualRect(index).center());
    }
    void clickHeader(int column)
    {
        QHeaderView *header = table()->horizontalHeader();
        QTest::mouseClick(
            header->viewport(), Qt::LeftButton, Qt::NoModifier,
            QPoint(header->sectionViewportPosition(column) + header->sectionSize(column) / 2,
                   header->height() / 2));
    }
    /// The entry with that text of an open menu.
    void chooseEntry(const char *menuName, const QString &text)
    {
        auto *menu = child<QMenu>(menuName);
        QTRY_VERIFY(menu->isVisible());
        for (QAction *action : menu->actions()) {
            // A count may follow the label.
            if (action->text().section(QLatin1Char('\t'), 0, 0) == text) {
                QTest::mouseClick(menu, Qt::LeftButton, Qt::NoModifier,
                                  menu->actionGeometry(action).center());
                return;
            }
        }
        QFAIL("no such entry");
    }
    void chooseType(const QString &label)
    {
        clickHeader(Type);
        chooseEntry("TypeFilterMenu", label);
    }
    void chooseSource(const QString &label)
    {
        // The button's own menu runs a nested event loop.
        QTimer::singleShot(0, &m_page, [this, label] { chooseEntry("SourceFilterMenu", label); });
        press("SourceFilterButton");
    }
    /// One of the quick filters, by its label.
    void chooseQuick(const QString &label)
    {
        for (QPushButton *button : child<QWidget>("QuickFilters")->findChildren<QPushButton *>()) {
            if (button->text() == label)
                QTest::mouseClick(button, Qt::LeftButton);
        }
    }
    void chooseTime(const QString &label)
    {
        QTimer::singleShot(0, &m_page, [this, label] { chooseEntry("TimeFilterMenu", label); });
        press("TimeFilterButton");
    }
    void typeName(const QString &text)
    {
        auto *search = child<QLineEdit>("ScanSearchEdit");
        search->setFocus();
        search->selectAll();
        if (text.isEmpty())
            QTest::keyClick(search, Qt::Key_Delete);
        else
            QTest::keyClicks(search, text);
    }
    /// Clicks a directory; the way to it is opened first.
    void clickDirectory(const QStringList &way)
    {
        QModelIndex index = tree()->model()->index(0, 0);
        for (const QString &name : way) {
            tree()->expand(index);
            const QModelIndex above = index;
            index = QModelIndex();
            for (int row = 0; row < tree()->model()->rowCount(above); ++row) {
                if (tree()->model()->index(row, 0, above).data().toString() == name)
                    index = tree()->model()->index(row, 0, above);
            }
            QVERIFY2(index.isValid(), qPrintable(name));
        }
        tree()->scrollTo(index);
        QTest::mouseClick(tree()->viewport(), Qt::LeftButton, Qt::NoModifier,
                          tree()->visualRect(index).center());
    }

    /// Runs `call`, which opens a notice, and confirms it: title and message as one text.
    template <typename Call>
    static QString noticeOf(Call call)
    {
        QString words;
        support::ModalDriver driver([&words](QWidget *dialog) {
            words = dialog->findChild<QLabel *>(QStringLiteral("NoticeTitle"))->text() +
                    QLatin1Char('|') +
                    dialog->findChild<QLabel *>(QStringLiteral("NoticeMessage"))->text();
            QTest::mouseClick(dialog->findChild<QPushButton *>(QStringLiteral("NoticeOkBtn")),
                              Qt::LeftButton);
        });
        call();
        return driver.handled() ? words : QStringLiteral("no notice");
    }

private:
    ScanResultsPage m_page;
};
