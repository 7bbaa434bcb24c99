#include "ui/pages/diskanalyzerpage/directorylister.h"

#include "ui/pages/diskanalyzerpage/dirfilemodel.h"
#include "ui/pages/diskanalyzerpage/pooltask.h"

namespace diskanalyzer {

DirectoryLister::~DirectoryLister()
{
    cancel();
}

void DirectoryLister::list(const QString &path)
{
    cancel();
    m_path = path;
    if (!m_running)
        start();
}

void DirectoryLister::cancel()
{
    m_path.clear();
    if (m_stop)
        m_stop->store(true);
}

void DirectoryLister::start()
{
    m_running = true;
    m_stop = std::make_shared<std::atomic<bool>>(false);
    const auto work = [path = m_path, stop = m_stop] {
        return listFilesOf(path, [stop] { return stop->load(); });
    };
    runInPool(this, work, [this](const QVariantList &files) {
        m_running = false;
        if (!m_stop->load())
            emit listed(files);
        else if (!m_path.isEmpty())
            start();
    });
}

} // namespace diskanalyzer
