#pragma once

#include "support/dialogsteps.h"
#include "support/fakeservice.h"
#include "support/temptree.h"
#include "ui/common/resources.h"
#include "ui/common/theme.h"
#include "ui/pages/diskanalyzerpage.h"
#include "ui/pages/diskanalyzerpage/duplicategroups.h"
#include "ui/pages/diskanalyzerpage/duplicatelistview.h"

#include <QCheckBox>
#include <QFile>
#include <QFileInfo>
#include <QPushButton>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTest>

using diskanalyzer::DuplicateListView;
using diskanalyzer::PartitionInfo;
using support::ModalDriver;
using testsupport::FakeService;

/// What the tests of the space page share.
namespace diskanalyzertest {

enum Tab { LargeFiles, Directories, Duplicates };

inline QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

inline PartitionInfo partition(const char *mountPath, qint64 used)
{
    PartitionInfo info;
    info.mountPath = text(mountPath);
    info.device = text("/dev/") + text(mountPath).section(QLatin1Char('/'), -1);
    info.fsType = text("ext4");
    info.totalBytes = 100;
    info.usedBytes = used;
    return info;
}

inline QVariantMap scanned(const QString &path)
{
    const QFileInfo info(path);
    return {{text("path"), path},
            {text("size"), info.size()},
            {text("modified"), info.lastModified()},
            {text("aliasCount"), 0}};
}

QVariantMap directory(const QString &name, qint64 total, qint64 own,
                      const QVariantList &children = QVariantList())
{
    return {{text("name"), name},
            {text("totalSize"), total},
            {text("fileSize"), own},
            {text("children"), children}};
}

inline QVariantList groupsOf(const QVector<QVariantList> &groups, qint64 size)
{
    QVariantList list = {QVariantMap{{text("totalGroups"), groups.size()},
                                     {text("totalReclaimable"), size * groups.size()},
                                     {text("shownGroups"), groups.size()}}};
    for (const QVariantList &files : groups)
        list.append(
            QVariantMap{{text("size"), size}, {text("hash"), text("00")}, {text("files"), files}});
    return list;
}

inline QModelIndex below(const QModelIndex &parent, int row, int column = 0)
{
    return parent.model()->index(row, column, parent);
}

/// The page over two partitions that are none of this machine's, and a tree of files.
class DiskAnalyzerBench
{
protected:
    void setUpTheme();
    void setUp();
    void tearDown();

    template <typename T>
    T *child(const char *name) const
    {
        return m_page->findChild<T *>(QLatin1String(name));
    }
    QString label(const char *name) const { return child<QLabel>(name)->text(); }
    void press(const char *name) { QTest::mouseClick(child<QPushButton>(name), Qt::LeftButton); }
    QAbstractItemModel *model(const char *name) const
    {
        return child<QAbstractItemView>(name)->model();
    }
    void show(Tab tab) { child<QTabWidget>("AnalyzerTabs")->setCurrentIndex(tab); }
    QStringList emptyTitles() const;
    void clickPart(int row, DuplicateListView::Part part);
    /// Runs `act`, which opens a question and later a notice; presses `button` in the question and
    /// confirms the notice. Titles and messages of both.
    QStringList confirming(const std::function<void()> &act, const char *button = "NoticeOkBtn");

    QScopedPointer<TempTree> m_tree;
    QScopedPointer<DiskAnalyzerPage> m_page;
};

inline void DiskAnalyzerBench::setUpTheme()
{
    ui::common::initResources();
    ui::common::ThemeColors::init(ui::common::ThemeType::light, 1.0);
    qApp->setStyleSheet(ui::common::buildAppStyleSheet(ui::common::ThemeType::light));
}

inline void DiskAnalyzerBench::setUp()
{
    m_tree.reset(new TempTree);
    m_page.reset(new DiskAnalyzerPage(nullptr));
    m_page->setPartitionProvider([] {
        return QVector<PartitionInfo>{partition("/opt", 95), partition("/data", 40)};
    });
    m_page->resize(1000, 660);
    m_page->show();
    QVERIFY(QTest::qWaitForWindowActive(m_page.data()));
    QTRY_COMPARE(m_page->findChildren<QFrame *>(text("PartitionCard")).size(), 2);
}

inline void DiskAnalyzerBench::tearDown()
{
    m_page.reset();
    m_tree.reset();
}

inline QStringList DiskAnalyzerBench::emptyTitles() const
{
    QStringList titles;
    const auto tabs = child<QTabWidget>("AnalyzerTabs");
    for (int i = 0; i < tabs->count(); ++i)
        titles += tabs->widget(i)->findChild<QLabel *>(text("EmptyStateTitle"))->text();
    return titles;
}

inline void DiskAnalyzerBench::clickPart(int row, DuplicateListView::Part part)
{
    auto *list = child<DuplicateListView>("DuplicateList");
    const QRect rect = list->partRect(list->model()->index(row, 0), part);
    QVERIFY(!rect.isEmpty());
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier, rect.center());
}

inline QStringList DiskAnalyzerBench::confirming(const std::function<void()> &act,
                                                 const char *button)
{
    QStringList texts;
    {
        ModalDriver question(support::presses(button, &texts));
        act();
        if (!QTest::qWaitFor([&question] { return question.handled(); }))
            return texts;
    }
    ModalDriver notice(support::presses("NoticeOkBtn", &texts));
    const bool told = QTest::qWaitFor([&notice] { return notice.handled(); });
    return told ? texts : QStringList{text("no notice")};
}

} // namespace diskanalyzertest
