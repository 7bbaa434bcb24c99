#pragma once

#include <QStringList>
#include <QTreeView>

namespace scanresults {

class ScanTreeModel;

/// The directories of the found files. Says which one is chosen, by mouse or keys.
class ScanTreeWidget : public QTreeView
{
    Q_OBJECT

public:
    ScanTreeWidget(ScanTreeModel *model, QWidget *parent);

    /// Makes the node current and opens the way to it.
    void selectNode(int node);
    /// Paths of the open directories, those of closed ancestors left out.
    QStringList openPaths() const;
    /// Opens those of the paths that are there, and the root.
    void openPathsAgain(const QStringList &paths);

signals:
    /// Also for a click on the directory that is chosen already.
    void directoryChosen(int node);

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    ScanTreeModel *m_model;
};

} // namespace scanresults
