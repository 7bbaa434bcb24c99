#pragma once

#include <QObject>
#include <QStringList>

class QWidget;

namespace fileshare {

struct PrivateContent;

/// Looks at what is about to be added to a share, in the background, and asks the user about what
/// holds private folders or lies in one. GUI thread.
class SharePathAdder : public QObject
{
    Q_OBJECT

public:
    /// `parent` is what the question stands before.
    explicit SharePathAdder(QWidget *parent);

    void add(const QStringList &paths);

signals:
    /// In their order, without those that the user has decided against. Never emitted from within
    /// add().
    void accepted(const QStringList &paths);

private:
    void finish(const QStringList &paths, const QList<PrivateContent> &contents);

    QWidget *m_parent;
};

} // namespace fileshare
