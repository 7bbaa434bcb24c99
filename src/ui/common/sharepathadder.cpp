#include "ui/common/sharepathadder.h"

#include "ui/common/appnoticedialog.h"
#include "ui/common/privatefolders.h"

#include <QDir>
#include <QPointer>
#include <QSharedPointer>
#include <QThread>
#include <QWidget>

using ui::common::AppNoticeDialog;

namespace fileshare {

SharePathAdder::SharePathAdder(QWidget *parent)
    : QObject(parent)
    , m_parent(parent)
{}

void SharePathAdder::add(const QStringList &paths)
{
    if (paths.isEmpty())
        return;
    const auto contents = QSharedPointer<QList<PrivateContent>>::create();
    // A thread of its own: those of the pool may all be busy with visitors.
    QThread *thread = QThread::create([paths, contents, home = QDir::homePath()] {
        for (const QString &path : paths) {
            const PrivateContent content = privateContentOf(path, home);
            if (!content.isEmpty())
                contents->append(content);
        }
    });
    connect(thread, &QThread::finished, this,
            [this, paths, contents] { finish(paths, *contents); });
    connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    thread->start();
}

void SharePathAdder::finish(const QStringList &paths, const QList<PrivateContent> &contents)
{
    const QPointer<SharePathAdder> self(this);
    QStringList wanted = paths;
    if (!contents.isEmpty() &&
        !AppNoticeDialog::confirm(m_parent, tr("共享私密内容？"), privateContentText(contents),
                                  tr("仍然添加"), tr("不添加"))) {
        for (const PrivateContent &content : contents)
            wanted.removeAll(content.path);
    }
    if (self && !wanted.isEmpty())
        emit accepted(wanted);
}

} // namespace fileshare
