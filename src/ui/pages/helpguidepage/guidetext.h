#pragma once

#include <QColor>
#include <QString>
#include <QVector>

/// Turns the help file's mark-up into HTML. No widgets.
namespace helpguide {

/// A heading of the guide.
struct GuideSection
{
    int level = 1; ///< 1 to 3.
    QString title;
    QString anchor; ///< "section-" and the running number.
};

struct GuideColors
{
    QColor text;
    QColor codeBackground;
    QColor codeBorder;
};

/// `&`, `<` and `>` as entities.
QString escaped(const QString &text);

/// Headings of three levels, lists, fenced code and paragraphs; everything else, inline mark-up
/// included, stays as it stands. What is open at the end is closed. The headings are appended to
/// `sections` if it is not null.
QString markdownToHtml(const QString &markdown, const GuideColors &colors,
                       QVector<GuideSection> *sections);

/// The page that stands in for a guide that cannot be read; `path` may be empty.
QString problemPage(const QString &heading, const QString &text, const QString &path,
                    const GuideColors &colors);

} // namespace helpguide
