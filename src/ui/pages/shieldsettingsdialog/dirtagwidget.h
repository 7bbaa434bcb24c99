#pragma once

#include <QFrame>

/// A directory as a tag, with a button that asks for its removal.
class DirTagWidget : public QFrame
{
    Q_OBJECT

public:
    explicit DirTagWidget(const QString &path, QWidget *parent = nullptr);

    QString path() const { return m_path; }

signals:
    void removeRequested(const QString &path);

private:
    QString m_path;
};
