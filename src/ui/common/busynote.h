#pragma once

#include <QWidget>

class QLabel;

namespace fileshare {

/// Says what is being done, beside a moving bar. Keeps its room while there is nothing to say.
class BusyNote : public QWidget
{
    Q_OBJECT

public:
    explicit BusyNote(QWidget *parent = nullptr);

public slots:
    /// Empty: nothing is under way.
    void setText(const QString &text);

private:
    QLabel *m_text;
};

} // namespace fileshare
