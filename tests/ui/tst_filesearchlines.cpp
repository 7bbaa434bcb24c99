#include "ui/pages/filesearchpage/searchresultmodel.h"
#include "ui/searchpagefixture.h"

#include <QAbstractItemView>
#include <QHeaderView>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QTableView>
#include <QTest>
#include <QUrl>

using filesearch::SearchResultModel;

namespace {

constexpr auto Names = SearchPageFixture::Names;
constexpr auto Contents = SearchPageFixture::Contents;

QString u(const char *text)
{
    return QString::fromUtf8(text);
}

} // namespace

/// Search lines on the page, and what can be done with the rows.
class TestFileSearchLines : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void answersLines();
    void tellsThatADiskIsAway();
    void sortsByAColumn();
    void dragsFilesOut();
    void previewsByTheSpaceBar();

private:
    QStringList sorted(QStringList names)
    {
        names.sort();
        return names;
    }
    QVariant cell(int row, int role, int column = SearchResultModel::NameColumn) const
    {
        return m_f->results(Names)->model()->index(row, column).data(role);
    }

    QScopedPointer<SearchPageFixture> m_f;
};

void TestFileSearchLines::init()
{
    m_f.reset(new SearchPageFixture);
}

void TestFileSearchLines::cleanup()
{
    m_f.reset();
}

void TestFileSearchLines::answersLines()
{
    m_f->file(u("合同_甲.txt"), "甲方与乙方");
    m_f->file(u("合同_乙.txt"), "只有乙方");
    m_f->file(u("旧/報告.txt"), "只有甲方");
    m_f->open();
    QVERIFY(m_f->build());
    m_f->search(Names, u("合同 -乙"));
    QTRY_COMPARE(m_f->rows(Names), QStringList{u("合同_甲.txt")});
    QCOMPARE(cell(0, SearchResultModel::TagRole).toString(), QString());
    m_f->search(Names, u("hetong 甲"));
    QTRY_COMPARE(m_f->rows(Names), QStringList{u("合同_甲.txt")});
    QTRY_COMPARE(cell(0, SearchResultModel::TagRole).toString(), u("拼音"));
    m_f->search(Names, u("报告 path:旧"));
    QTRY_COMPARE(m_f->rows(Names), QStringList{u("報告.txt")});
    m_f->choose(Contents);
    m_f->search(Contents, u("甲方 -乙方"));
    QTRY_COMPARE(m_f->rows(Contents), QStringList{u("報告.txt")});
    for (const char *edit : {"NameSearchEdit", "ContentSearchEdit"}) {
        const QString help = m_f->child<QLineEdit>(edit)->toolTip();
        QVERIFY(help.contains(u("path:")) && help.contains(u("size:>1M")));
    }
}

void TestFileSearchLines::tellsThatADiskIsAway()
{
    m_f->setSetting(u("search/indexRoots"),
                    QStringList{m_f->home(u("here")), m_f->home(u("stick"))});
    m_f->setSetting(u("search/inotifyMaxDepth"), -1);
    m_f->file(u("here/report_here.txt"));
    const QString gone = m_f->file(u("here/report_gone.txt"));
    const QString away = m_f->file(u("stick/report_away.txt"));
    m_f->open();
    QVERIFY(m_f->build());
    QVERIFY(QFile::remove(gone) && QFile::remove(away));
    m_f->search(Names, u("report"));
    QTRY_COMPARE(sorted(m_f->rows(Names)),
                 (QStringList{u("report_away.txt"), u("report_here.txt")}));
    const int row = m_f->rows(Names).indexOf(u("report_away.txt"));
    QCOMPARE(cell(row, SearchResultModel::TagRole).toString(), u("磁盘未连接"));
    QVERIFY(cell(row, Qt::ForegroundRole).isValid());
    QVERIFY(!cell(1 - row, Qt::ForegroundRole).isValid());
}

void TestFileSearchLines::sortsByAColumn()
{
    m_f->file(u("row_b.txt"), "22");
    m_f->file(u("row_c.txt"), "1");
    m_f->file(u("row_a.txt"), "333");
    m_f->open();
    QVERIFY(m_f->build());
    m_f->search(Names, u("row"));
    QTRY_COMPARE(m_f->rows(Names).size(), 3);
    const QStringList answer = m_f->rows(Names);
    QHeaderView *header = static_cast<QTableView *>(m_f->results(Names))->horizontalHeader();
    const auto click = [header](int column) {
        QTest::mouseClick(header->viewport(), Qt::LeftButton, Qt::NoModifier,
                          QPoint(header->sectionViewportPosition(column) + 20, 10));
    };
    const QStringList byName{u("row_a.txt"), u("row_b.txt"), u("row_c.txt")};
    click(SearchResultModel::NameColumn);
    QCOMPARE(m_f->rows(Names), byName);
    click(SearchResultModel::SizeColumn);
    QCOMPARE(m_f->rows(Names), (QStringList{byName.at(2), byName.at(1), byName.at(0)}));
    click(SearchResultModel::SizeColumn);
    QCOMPARE(m_f->rows(Names), byName);
    click(SearchResultModel::ActionColumn); // nothing to sort by
    QCOMPARE(m_f->rows(Names), byName);
    click(SearchResultModel::SizeColumn);
    QCOMPARE(m_f->rows(Names), answer);
}

void TestFileSearchLines::dragsFilesOut()
{
    const QString path = m_f->file(u("row.txt"));
    m_f->open();
    QVERIFY(m_f->build());
    m_f->search(Names, u("row"));
    QTRY_COMPARE(m_f->rows(Names).size(), 1);
    const QAbstractItemModel *model = m_f->results(Names)->model();
    QVERIFY(model->flags(model->index(0, 0)).testFlag(Qt::ItemIsDragEnabled));
    const QScopedPointer<QMimeData> data(model->mimeData({model->index(0, 0), model->index(0, 1)}));
    QCOMPARE(data->urls(), QList<QUrl>{QUrl::fromLocalFile(path)});
}

void TestFileSearchLines::previewsByTheSpaceBar()
{
    m_f->file(u("row.txt"), "first line\n\nsecond   line\n");
    QImage image(900, 300, QImage::Format_RGB32);
    image.fill(Qt::red);
    QVERIFY(image.save(m_f->home(u("row.png"))));
    m_f->open();
    QVERIFY(m_f->build());
    m_f->search(Names, u("row"));
    QTRY_COMPARE(m_f->rows(Names).size(), 2);
    QAbstractItemView *table = m_f->results(Names);
    auto *bubble = m_f->inView<QWidget>(Names, "ResultPreview");
    auto *label = m_f->inView<QLabel>(Names, "ResultPreviewLabel");
    const auto choose = [&](const char *name) {
        table->setCurrentIndex(table->model()->index(m_f->rows(Names).indexOf(u(name)), 0));
    };
    choose("row.txt");
    QTest::keyClick(table, Qt::Key_Space);
    QVERIFY(bubble->isVisible());
    QTRY_COMPARE(label->text(), u("first line\nsecond line"));
    choose("row.png");
    QVERIFY(!bubble->isVisible()); // it belonged to the other row
    QTest::keyClick(table, Qt::Key_Space);
    QTRY_VERIFY(label->pixmap() && label->pixmap()->width() == 320);
    QTest::keyClick(table, Qt::Key_Space);
    QVERIFY(!bubble->isVisible());
}

QTEST_MAIN(TestFileSearchLines)
#include "tst_filesearchlines.moc"
