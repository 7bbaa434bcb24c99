#pragma once

#include <QListWidget>
#include <QStringList>

namespace fileshare {

/// The files and folders of a share that is being put together. Each path stands there once.
class SharePathList : public QListWidget
{
    Q_OBJECT

public:
    explicit SharePathList(QWidget *parent = nullptr);

    QStringList paths() const;
    void setPaths(const QStringList &paths);
    /// How many of them were new.
    int addPaths(const QStringList &paths);

public slots:
    void removeSelected();
    void clearPaths();

signals:
    void pathsChanged();

protected:
    void keyPressEvent(QKeyEvent *event) override;
};

} // namespace fileshare
