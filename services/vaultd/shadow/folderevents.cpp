#include "vaultd/shadow/folderevents.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/fanotify.h>

namespace services::vaultd {

namespace {

constexpr int kMaxHandle = 128; // bytes; the kernel's MAX_HANDLE_SZ
constexpr int kBuffer = 64 * 1024;
constexpr quint64 kEvents = FAN_CREATE | FAN_DELETE | FAN_MOVED_FROM | FAN_MOVED_TO | FAN_ATTRIB |
                            FAN_CLOSE_WRITE | FAN_ONDIR;

union HandleSpace {
    struct file_handle handle;
    char space[sizeof(struct file_handle) + kMaxHandle];
};

QByteArray keyOf(const struct file_handle &handle)
{
    return QByteArray(reinterpret_cast<const char *>(&handle.handle_type),
                      sizeof handle.handle_type) +
           QByteArray(reinterpret_cast<const char *>(handle.f_handle), int(handle.handle_bytes));
}

/// The folder and the name in the records behind an event; nothing if there are none.
void readNames(const char *at, const char *end, FolderEvent *event)
{
    while (at + sizeof(fanotify_event_info_fid) <= end) {
        fanotify_event_info_fid info;
        std::memcpy(&info, at, sizeof info);
        if (info.hdr.len < sizeof info || at + info.hdr.len > end)
            return;
        if (info.hdr.info_type == FAN_EVENT_INFO_TYPE_DFID_NAME) {
            const char *const handle = at + sizeof info;
            const char *const recordEnd = at + info.hdr.len;
            HandleSpace space;
            std::memcpy(&space.handle, handle, sizeof(struct file_handle));
            const char *const name =
                handle + sizeof(struct file_handle) + space.handle.handle_bytes;
            if (space.handle.handle_bytes > kMaxHandle || name > recordEnd)
                return;
            std::memcpy(space.space, handle, size_t(name - handle));
            event->folder = keyOf(space.handle);
            event->name = QByteArray(name, int(::strnlen(name, size_t(recordEnd - name))));
            return;
        }
        at += info.hdr.len;
    }
}

} // namespace

QByteArray folderKey(int fd)
{
    HandleSpace space;
    space.handle.handle_bytes = kMaxHandle;
    int mount = 0;
    return ::name_to_handle_at(fd, "", &space.handle, &mount, AT_EMPTY_PATH) == 0
               ? keyOf(space.handle)
               : QByteArray();
}

int openFolderByKey(int mountFd, const QByteArray &key)
{
    HandleSpace space;
    const int typeSize = int(sizeof space.handle.handle_type);
    if (key.size() <= typeSize || key.size() > typeSize + kMaxHandle) {
        errno = EINVAL;
        return -1;
    }
    std::memcpy(&space.handle.handle_type, key.constData(), sizeof space.handle.handle_type);
    space.handle.handle_bytes = unsigned(key.size() - typeSize);
    std::memcpy(space.handle.f_handle, key.constData() + typeSize, space.handle.handle_bytes);
    return ::open_by_handle_at(mountFd, &space.handle, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

bool FolderEvents::open(int folder)
{
    m_fd.reset(::fanotify_init(FAN_CLASS_NOTIF | FAN_REPORT_DFID_NAME | FAN_CLOEXEC | FAN_NONBLOCK,
                               O_RDONLY | O_CLOEXEC));
    if (!m_fd.isOpen())
        return false;
    m_watchesAll = ::fanotify_mark(m_fd.get(), FAN_MARK_ADD | FAN_MARK_FILESYSTEM, kEvents, folder,
                                   nullptr) == 0;
    return m_watchesAll || watch(folder);
}

bool FolderEvents::watch(int folder)
{
    return m_watchesAll || ::fanotify_mark(m_fd.get(), FAN_MARK_ADD | FAN_MARK_ONLYDIR,
                                           kEvents | FAN_EVENT_ON_CHILD, folder, nullptr) == 0;
}

QVector<FolderEvent> FolderEvents::read()
{
    QVector<FolderEvent> events;
    alignas(fanotify_event_metadata) static thread_local char buffer[kBuffer];
    const ssize_t length = ::read(m_fd.get(), buffer, sizeof buffer);
    for (const char *at = buffer;
         at + FAN_EVENT_METADATA_LEN <= buffer + qMax<ssize_t>(0, length);) {
        fanotify_event_metadata header;
        std::memcpy(&header, at, sizeof header);
        if (header.event_len < FAN_EVENT_METADATA_LEN || at + header.event_len > buffer + length)
            break;
        FolderEvent event;
        event.mask = header.mask;
        readNames(at + header.metadata_len, at + header.event_len, &event);
        events.append(event);
        at += header.event_len;
    }
    return events;
}

} // namespace services::vaultd
