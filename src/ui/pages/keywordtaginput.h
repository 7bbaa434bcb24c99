#pragma once

#include <QFrame>
#include <QString>
#include <QStringList>

class QLineEdit;
class QScrollArea;

/// Input for refine keywords: committed ones as chips before a line edit. Return, a comma or a
/// semicolon commits; Backspace in an empty editor takes the last chip away. Keywords differ by
/// more than case. Object names: KeywordTagInput, KeywordTagEditor, KeywordTagChip and in it
/// KeywordTagRemove.
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
    /// Takes all chips and the pending text away.
    void clearKeywords();

public slots:
    void commitCurrentText();
    void handleEditorTextChanged(const QString &text);

signals:
    /// The chips changed.
    void keywordsChanged();
    /// The chips or the pending text changed.
    void filterChanged();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    bool containsKeyword(const QString &keyword) const;
    /// True if the list grew; shows and signals nothing.
    bool appendKeyword(const QString &keyword);
    bool handleEditorKey(int key);
    void setEditorText(const QString &text);
    void rebuildChips();
    QWidget *makeChip(const QString &keyword);
    /// The chips take at most half the width; beyond that they scroll.
    void fitChipRow();
    void updateFrameState(bool focused);

    QStringList m_chips;
    QScrollArea *m_chipScroll;
    QWidget *m_chipRow = nullptr;
    QLineEdit *m_editor;
};
