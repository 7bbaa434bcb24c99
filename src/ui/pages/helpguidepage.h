#pragma once

#include "ui/pages/helpguidepage/guidetext.h"

#include <QString>
#include <QVector>
#include <QWidget>

class AuxiliaryToolsPage;
class QStackedWidget;
class QTextBrowser;
class QTreeWidget;
class QTreeWidgetItem;

/// The user guide, read on first show, with its table of contents and, behind a button, the
/// catalogue of disk tools. GUI thread only.
class HelpGuidePage : public QWidget
{
    Q_OBJECT

public:
    /// An empty path means the file beside the program's folder.
    explicit HelpGuidePage(QWidget *parent = nullptr, const QString &guidePath = QString());

    /// Reads the guide anew; a problem shows in its place.
    void loadMarkdownFromDisk();
    /// The guide's mark-up as HTML in the colours of the theme; its headings become the sections.
    QString markdownToHtml(const QString &markdown);

protected:
    void showEvent(QShowEvent *event) override;

private:
    QWidget *buildGuide();
    QWidget *buildContents();
    void showContents();
    void showTools();
    void scrollToItem(const QTreeWidgetItem *item);

    QString m_guidePath;
    bool m_isLoaded = false; ///< On first show.
    QVector<helpguide::GuideSection> m_sections;
    QStackedWidget *m_stack = nullptr;
    QWidget *m_guide = nullptr;
    AuxiliaryToolsPage *m_tools = nullptr; ///< Made on first show.
    QTreeWidget *m_contents = nullptr;
    QTextBrowser *m_text = nullptr;
};
