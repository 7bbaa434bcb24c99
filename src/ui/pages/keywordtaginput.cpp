#include "ui/pages/keywordtaginput.h"

#include "ui/common/elidedlabel.h"
#include "ui/common/widgetstyle.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollArea>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QTimer>
#include <QWheelEvent>

using ui::common::ElidedLabel;

namespace {

constexpr int kChipGap = 4;
/// Longest chip label in average characters of its font.
constexpr int kChipLabelChars = 16;

} // namespace

KeywordTagInput::KeywordTagInput(QWidget *parent)
    : QFrame(parent)
    , m_chipScroll(new QScrollArea(this))
    , m_editor(new QLineEdit(this))
{
    setObjectName(QStringLiteral("KeywordTagInput"));
    m_editor->setObjectName(QStringLiteral("KeywordTagEditor"));
    m_editor->installEventFilter(this);
    setFocusProxy(m_editor);
    setCursor(Qt::IBeamCursor);

    m_chipScroll->setObjectName(QStringLiteral("KeywordTagScroll"));
    m_chipScroll->setFrameShape(QFrame::NoFrame);
    m_chipScroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_chipScroll->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_chipScroll->setFocusPolicy(Qt::NoFocus);
    m_chipScroll->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    m_chipScroll->viewport()->installEventFilter(this);
    m_chipScroll->hide();

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(4, 0, 4, 0);
    layout->setSpacing(4);
    layout->addWidget(m_chipScroll);
    layout->addWidget(m_editor, 1);

    connect(m_editor, &QLineEdit::textChanged, this, &KeywordTagInput::handleEditorTextChanged);
    updateFrameState(false);
}

void KeywordTagInput::setPlaceholderText(const QString &text)
{
    m_editor->setPlaceholderText(text);
}

QStringList KeywordTagInput::keywords() const
{
    QStringList result = m_chips;
    const QString pending = m_editor->text().trimmed();
    if (!pending.isEmpty() && !containsKeyword(pending))
        result.append(pending);
    return result;
}

QString KeywordTagInput::keywordString() const
{
    return keywords().join(QLatin1Char('\n'));
}

void KeywordTagInput::addKeyword(const QString &keyword)
{
    if (!appendKeyword(keyword))
        return;
    rebuildChips();
    emit keywordsChanged();
    emit filterChanged();
}

void KeywordTagInput::removeKeyword(const QString &keyword)
{
    const QString wanted = keyword.trimmed();
    for (int i = 0; i < m_chips.size(); ++i) {
        if (m_chips.at(i).compare(wanted, Qt::CaseInsensitive) != 0)
            continue;
        m_chips.removeAt(i);
        rebuildChips();
        emit keywordsChanged();
        emit filterChanged();
        return;
    }
}

void KeywordTagInput::clearKeywords()
{
    const bool hadChips = !m_chips.isEmpty();
    if (!hadChips && m_editor->text().isEmpty())
        return;
    m_chips.clear();
    setEditorText(QString());
    rebuildChips();
    if (hadChips)
        emit keywordsChanged();
    emit filterChanged();
}

void KeywordTagInput::commitCurrentText()
{
    const QString text = m_editor->text();
    if (text.isEmpty())
        return;
    const bool grew = appendKeyword(text);
    setEditorText(QString());
    if (grew) {
        rebuildChips();
        emit keywordsChanged();
    }
    emit filterChanged();
}

void KeywordTagInput::handleEditorTextChanged(const QString &text)
{
    static const QRegularExpression kDelimiters(QStringLiteral("[,;]+"));
    QStringList parts = text.split(kDelimiters);
    // What follows the last delimiter is still being typed; empty after a closing one.
    const QString rest = parts.takeLast();
    if (!parts.isEmpty()) {
        bool grew = false;
        for (const QString &part : qAsConst(parts))
            grew = appendKeyword(part) || grew;
        setEditorText(rest);
        if (grew) {
            rebuildChips();
            emit keywordsChanged();
        }
    }
    emit filterChanged();
}

bool KeywordTagInput::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_editor) {
        if (event->type() == QEvent::FocusIn || event->type() == QEvent::FocusOut)
            updateFrameState(event->type() == QEvent::FocusIn);
        else if (event->type() == QEvent::KeyPress &&
                 handleEditorKey(static_cast<QKeyEvent *>(event)->key()))
            return true;
    } else if (event->type() == QEvent::Wheel) {
        // The row only scrolls sideways, whichever way the wheel turns.
        const QPoint delta = static_cast<QWheelEvent *>(event)->angleDelta();
        QScrollBar *bar = m_chipScroll->horizontalScrollBar();
        bar->setValue(bar->value() - (delta.x() != 0 ? delta.x() : delta.y()));
        return true;
    }
    return QFrame::eventFilter(watched, event);
}

/// True if the key was for the chips and not for the editor.
bool KeywordTagInput::handleEditorKey(int key)
{
    if (key == Qt::Key_Return || key == Qt::Key_Enter) {
        commitCurrentText();
        return true;
    }
    if (key == Qt::Key_Backspace && m_editor->text().isEmpty() && !m_chips.isEmpty()) {
        removeKeyword(m_chips.last());
        return true;
    }
    return false;
}

void KeywordTagInput::mousePressEvent(QMouseEvent *event)
{
    m_editor->setFocus(Qt::MouseFocusReason);
    QFrame::mousePressEvent(event);
}

void KeywordTagInput::resizeEvent(QResizeEvent *event)
{
    QFrame::resizeEvent(event);
    fitChipRow();
}

bool KeywordTagInput::containsKeyword(const QString &keyword) const
{
    return m_chips.contains(keyword, Qt::CaseInsensitive);
}

bool KeywordTagInput::appendKeyword(const QString &keyword)
{
    const QString trimmed = keyword.trimmed();
    if (trimmed.isEmpty() || containsKeyword(trimmed))
        return false;
    m_chips.append(trimmed);
    return true;
}

void KeywordTagInput::setEditorText(const QString &text)
{
    const QSignalBlocker blocker(m_editor);
    m_editor->setText(text);
}

void KeywordTagInput::rebuildChips()
{
    // A chip's own button may be what brought us here, so the old row lives until the event loop.
    if (QWidget *old = m_chipScroll->takeWidget()) {
        old->hide();
        old->deleteLater();
    }
    m_chipRow = new QWidget;
    auto *layout = new QHBoxLayout(m_chipRow);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(kChipGap);
    for (const QString &keyword : qAsConst(m_chips))
        layout->addWidget(makeChip(keyword));
    m_chipScroll->setWidget(m_chipRow);
    m_chipScroll->setVisible(!m_chips.isEmpty());
    fitChipRow();
}

QWidget *KeywordTagInput::makeChip(const QString &keyword)
{
    auto *chip = new QFrame(m_chipRow);
    chip->setObjectName(QStringLiteral("KeywordTagChip"));
    chip->setCursor(Qt::ArrowCursor);
    auto *label = new ElidedLabel(keyword, Qt::ElideRight, chip);
    label->setMaximumWidth(label->fontMetrics().averageCharWidth() * kChipLabelChars * 2);
    auto *remove = new QPushButton(QStringLiteral("x"), chip);
    remove->setObjectName(QStringLiteral("KeywordTagRemove"));
    remove->setAccessibleName(tr("移除关键词 %1").arg(keyword));
    connect(remove, &QPushButton::clicked, this, [this, keyword] { removeKeyword(keyword); });

    auto *layout = new QHBoxLayout(chip);
    layout->setContentsMargins(8, 2, 2, 2);
    layout->setSpacing(0);
    layout->addWidget(label);
    layout->addWidget(remove);
    return chip;
}

void KeywordTagInput::fitChipRow()
{
    if (!m_chipRow || m_chips.isEmpty())
        return;
    m_chipRow->ensurePolished();
    const QSize natural = m_chipRow->sizeHint();
    m_chipRow->resize(natural);
    m_chipScroll->setFixedSize(qMin(natural.width(), width() / 2), natural.height());
    QScrollBar *bar = m_chipScroll->horizontalScrollBar();
    bar->setValue(bar->maximum());
}

void KeywordTagInput::updateFrameState(bool focused)
{
    ui::common::setStyleProperty(this, "focused", focused);
}
