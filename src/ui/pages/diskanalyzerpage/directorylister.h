#pragma once

#include <QObject>
#include <QString>
#include <QVariantList>

#include <atomic>
#include <memory>

namespace diskanalyzer {

/// Lists the files of one directory after the other on the global pool. A new request takes the
/// place of the one that runs, so holding an arrow key down starts no crowd of listings.
class DirectoryLister : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;
    ~DirectoryLister() override;

    void list(const QString &path);
    /// Nothing is reported any more until the next list().
    void cancel();

signals:
    /// Of the last request only.
    void listed(const QVariantList &files);

private:
    void start();

    QString m_path; ///< Wanted; empty for nothing.
    bool m_running = false;
    std::shared_ptr<std::atomic<bool>> m_stop; ///< Of the listing that runs.
};

} // namespace diskanalyzer
