#pragma once

#include <QFrame>
#include <QString>
#include <QStringList>

class QLineEdit;

/// Input for refine keywords: committed ones as chips before a line edit. Return, a comma or a
/// semicolon commits.
class KeywordTagInput : public QFrame
{
    Q_OBJECT

public:
    explicit KeywordTagInput(QWidget *parent = nullptr);

    void setPlaceholderText(const QString &text);
    /// Chips, and the pending text where there is any.
    QStringList keywords() const;
    /// keywords() joined by line feeds, as the index takes them.
    QString keywordString() const;
    void addKeyword(const QString &keyword);
    void removeKeyword(const QString &keyword);
    void clearKeywords();

public slots:
    void commitCurrentText();

signals:
    /// The chips changed.
    void keywordsChanged();
    /// The chips or the pending text changed.
    void filterChanged();
};
