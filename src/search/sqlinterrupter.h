#pragma once

#include <mutex>

class QSqlDatabase;
struct sqlite3;

namespace search {

/// Ends a statement that runs on another thread. It fails then, as any statement that is run or
/// stepped before its connection is let go.
class SqlInterrupter
{
public:
    SqlInterrupter() = default;
    SqlInterrupter(const SqlInterrupter &) = delete;
    SqlInterrupter &operator=(const SqlInterrupter &) = delete;

    /// Holds a connection of the calling thread; let go before that is closed.
    class Hold
    {
    public:
        Hold(SqlInterrupter *interrupter, const QSqlDatabase &database);
        ~Hold();

        Hold(const Hold &) = delete;
        Hold &operator=(const Hold &) = delete;

    private:
        SqlInterrupter *m_interrupter;
    };

    /// For any thread. Nothing happens while no connection is held.
    void interrupt();

private:
    void set(sqlite3 *handle);

    std::mutex m_mutex; ///< While it is locked, the handle stays open.
    sqlite3 *m_handle = nullptr;
};

} // namespace search
