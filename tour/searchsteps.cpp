#include "searchsteps.h"

#include "support/sampledocuments.h"
#include "ui/pages/filesearchpage/searchresultmodel.h"
#include "ui/pages/keywordtaginput.h"

#include <QAbstractItemView>
#include <QDir>
#include <QFileInfo>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

namespace searchsteps {

namespace {

constexpr int kBuildMs = 180000;
constexpr int kSearchMs = 10000;

bool chooseView(Tour &tour, const QString &label, QString *error)
{
    const auto buttons = tour.window()->findChildren<QPushButton *>();
    for (QPushButton *button : buttons) {
        if (button->text() == label && button->isVisible()) {
            QTest::mouseClick(button, Qt::LeftButton);
            return true;
        }
    }
    *error = QStringLiteral("no button %1").arg(label);
    return false;
}

} // namespace

bool makeDocuments(Tour &tour, const QString &dir, QString *found, QString *error)
{
    QDir().mkpath(dir);
    QList<samples::Document> made;
    if (!samples::writeDocuments(dir, samples::officeAvailable(), &made, error))
        return false;
    // Drawings are read where somebody asks for them; they are no document type of the settings.
    for (const samples::Document &document : qAsConst(made)) {
        if (QFileInfo(document.fileName).suffix() != QLatin1String("odg"))
            tour.expectedTexts.insert(document.fileName, document.expectedText);
    }
    *found = QStringLiteral("%1 documents of %2 formats").arg(made.size()).arg([&made] {
        QStringList suffixes;
        for (const samples::Document &document : made)
            suffixes << QFileInfo(document.fileName).suffix();
        return suffixes.toSet().size();
    }());
    return true;
}

bool waitForBuild(Tour &tour, QString *found, QString *error)
{
    auto *status = tour.find<QWidget>("SearchStatus", error);
    if (!status)
        return false;
    const auto text = [status] {
        return status->property("text").toString();
    };
    if (!tour.waitFor([&] { return text().startsWith(QStringLiteral("索引构建完成")); }, kBuildMs,
                      QStringLiteral("the build to end"), error)) {
        *error += QStringLiteral("; the page says: ") + text();
        return false;
    }
    *found = text();
    return true;
}

bool type(Tour &tour, const char *editName, const QString &text, QString *error)
{
    auto *edit = tour.find<QLineEdit>(editName, error);
    if (!edit)
        return false;
    QTest::mouseClick(edit, Qt::LeftButton);
    edit->selectAll();
    QTest::keyClick(edit, Qt::Key_Delete);
    // Chinese comes from an input method, as text rather than as keys.
    edit->insert(text);
    return true;
}

QStringList resultPaths(const Tour &tour, const char *viewName)
{
    QStringList paths;
    QString error;
    auto *view = tour.find<QAbstractItemView>(viewName, &error);
    if (!view || !view->model())
        return paths;
    for (int row = 0; row < view->model()->rowCount(); ++row)
        paths << view->model()
                     ->index(row, 0)
                     .data(filesearch::SearchResultModel::PathRole)
                     .toString();
    return paths;
}

bool findFile(Tour &tour, const char *editName, const char *viewName, const QString &text,
              const QString &fileName, QString *error)
{
    if (!type(tour, editName, text, error))
        return false;
    const auto found = [&] {
        for (const QString &path : resultPaths(tour, viewName)) {
            if (QFileInfo(path).fileName() == fileName)
                return true;
        }
        return false;
    };
    return tour.waitFor(found, kSearchMs, QStringLiteral("%1 to bring %2").arg(text, fileName),
                        error);
}

bool findEveryText(Tour &tour, QString *found, QString *error)
{
    if (!showContentView(tour, error))
        return false;
    QStringList missing;
    for (auto it = tour.expectedTexts.cbegin(); it != tour.expectedTexts.cend(); ++it) {
        QString why;
        if (!findFile(tour, "ContentSearchEdit", "ContentResultList", it.value(), it.key(), &why))
            missing << why;
    }
    if (!missing.isEmpty()) {
        *error = missing.join(QStringLiteral("; "));
        return false;
    }
    *found = QStringLiteral("all of %1: %2")
                 .arg(tour.expectedTexts.size())
                 .arg(tour.expectedTexts.keys().join(QStringLiteral(", ")));
    return true;
}

bool addRefineKeyword(Tour &tour, const char *viewName, const QString &keyword, QString *error)
{
    auto *view = tour.find<QWidget>(viewName, error);
    auto *editor =
        view ? view->findChild<QLineEdit *>(QStringLiteral("KeywordTagEditor")) : nullptr;
    if (!editor) {
        *error = QStringLiteral("no refine input");
        return false;
    }
    QTest::mouseClick(editor, Qt::LeftButton);
    editor->insert(keyword);
    QTest::keyClick(editor, Qt::Key_Return);
    return true;
}

bool clearRefine(Tour &tour, const char *viewName, QString *error)
{
    auto *view = tour.find<QWidget>(viewName, error);
    auto *input = view ? view->findChild<KeywordTagInput *>() : nullptr;
    if (!input) {
        *error = QStringLiteral("no refine input");
        return false;
    }
    input->clearKeywords();
    return true;
}

bool showNameView(Tour &tour, QString *error)
{
    return chooseView(tour, QStringLiteral("文件名搜索"), error);
}

bool showContentView(Tour &tour, QString *error)
{
    return chooseView(tour, QStringLiteral("全文检索"), error);
}

} // namespace searchsteps
