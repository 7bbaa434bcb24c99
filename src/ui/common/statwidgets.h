#pragma once

#include <QFrame>
#include <QLabel>
#include <QWidget>

namespace ui {
namespace common {

/// A title above a large value.
class StatBlock : public QWidget
{
    Q_OBJECT

public:
    StatBlock(const QString &title, const QString &value, QWidget *parent = nullptr);
    void setValue(const QString &value);

private:
    QLabel *m_value;
};

/// A rounded label with a dot, for a state in one word.
class StatusPill : public QFrame
{
    Q_OBJECT

public:
    enum Type { Success = 0, Warning = 1, Danger = 2, Info = 3 };

    StatusPill(const QString &text, Type type, QWidget *parent = nullptr);
    void setText(const QString &text);
    void setType(Type type);

private:
    QLabel *m_dot;
    QLabel *m_text;
    Type m_type;
};

} // namespace common
} // namespace ui
