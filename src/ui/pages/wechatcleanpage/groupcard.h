#pragma once

#include "ui/pages/wechatcleanpage/cleanresults.h"

#include <QFrame>
#include <QList>

class QBoxLayout;
class QButtonGroup;
class QLabel;
class QPushButton;

namespace wechatclean {

/// One physical file in a card: a radio button, the path, a caption, the way to its folder, and
/// what becomes of it. A click anywhere chooses it. Object names: WechatFileRadio (properties
/// `filePath`, `aliasPaths`), WechatFilePath, WechatFileCaption, WechatFileOpenFolder,
/// WechatFileRole.
class FileRow;

/// Card of one duplicate group (properties `groupIndex`, `groupSize`, `groupHash`). Shows the
/// group's first rows; the rest comes up on demand, since a group may have thousands. Object names:
/// WechatGroupCard, WechatGroupLine, WechatGroupClean, WechatGroupMore.
class GroupCard : public QFrame
{
    Q_OBJECT

public:
    GroupCard(int index, const ResultGroup &group, const QStringList &scanDirs,
              QWidget *parent = nullptr);

    /// Height of the card of this group in logical pixels, known without making it.
    static int heightFor(const ResultGroup &group);
    /// What Tab visits, in its order.
    QList<QWidget *> tabChain() const { return m_tabChain; }

signals:
    void keptChanged(int group, int file);
    void cleanRequested(int group);
    void moreRequested(int group);
    void openFolderRequested(const QString &path);

private:
    void addHeader(QBoxLayout *column, const ResultGroup &group);
    void addRow(QBoxLayout *column, const ResultGroup &group, int file,
                const QStringList &scanDirs);
    void addMoreButton(QBoxLayout *column, const ResultGroup &group);

    int m_index;
    QButtonGroup *m_radios;
    QList<QWidget *> m_tabChain;
};

} // namespace wechatclean
