#pragma once

#include <QByteArray>
#include <QString>

#include <cstring>
#include <sqlite3.h>

namespace services::vaultd {

/// A connection to one SQLite file. May be handed from thread to thread, for one at a time.
class Sqlite
{
public:
    Sqlite() = default;
    ~Sqlite() { close(); }
    Sqlite(const Sqlite &) = delete;
    Sqlite &operator=(const Sqlite &) = delete;

    [[nodiscard]] bool open(const QString &path, bool isReadOnly)
    {
        close();
        const int flags =
            isReadOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
        if (sqlite3_open_v2(path.toUtf8().constData(), &m_db, flags, nullptr) != SQLITE_OK) {
            close();
            return false;
        }
        sqlite3_busy_timeout(m_db, kBusyMs);
        return true;
    }
    void close()
    {
        sqlite3_close_v2(m_db);
        m_db = nullptr;
    }
    bool isOpen() const { return m_db != nullptr; }
    /// One or several statements without results.
    bool run(const char *sql)
    {
        return sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
    }
    sqlite3 *handle() const { return m_db; }
    QString error() const { return QString::fromUtf8(sqlite3_errmsg(m_db)); }

private:
    static constexpr int kBusyMs = 5000;

    sqlite3 *m_db = nullptr;
};

/// A prepared statement; parameters are bound in order and can be bound anew after each run. One
/// that cannot be prepared gives no rows and fails.
class SqliteQuery
{
public:
    SqliteQuery(const Sqlite &db, const char *sql)
    {
        if (db.isOpen())
            sqlite3_prepare_v2(db.handle(), sql, -1, &m_statement, nullptr);
    }
    ~SqliteQuery() { sqlite3_finalize(m_statement); }
    SqliteQuery(const SqliteQuery &) = delete;
    SqliteQuery &operator=(const SqliteQuery &) = delete;

    SqliteQuery &bind(qint64 number)
    {
        sqlite3_bind_int64(m_statement, ++m_bound, number);
        return *this;
    }
    SqliteQuery &bind(const QString &text)
    {
        const QByteArray utf8 = text.toUtf8();
        sqlite3_bind_text(m_statement, ++m_bound, utf8.constData(), utf8.size(), SQLITE_TRANSIENT);
        return *this;
    }
    SqliteQuery &bindBytes(const QByteArray &bytes)
    {
        sqlite3_bind_blob(m_statement, ++m_bound, bytes.constData(), bytes.size(),
                          SQLITE_TRANSIENT);
        return *this;
    }
    /// True while there is a row.
    bool next() { return m_statement && sqlite3_step(m_statement) == SQLITE_ROW; }
    /// Runs a statement without results, and makes it ready to be bound again.
    [[nodiscard]] bool run()
    {
        const bool isDone = m_statement && sqlite3_step(m_statement) == SQLITE_DONE;
        reset();
        return isDone;
    }
    void reset()
    {
        sqlite3_reset(m_statement);
        m_bound = 0;
    }
    qint64 number(int column) const { return sqlite3_column_int64(m_statement, column); }
    QString text(int column) const
    {
        return QString::fromUtf8(
            reinterpret_cast<const char *>(sqlite3_column_text(m_statement, column)),
            sqlite3_column_bytes(m_statement, column));
    }
    /// Whether a text has these bytes in it, without a copy of it.
    bool contains(int column, const QByteArray &bytes) const
    {
        const unsigned char *const text = sqlite3_column_text(m_statement, column);
        return text && ::memmem(text, size_t(sqlite3_column_bytes(m_statement, column)),
                                bytes.constData(), size_t(bytes.size()));
    }
    QByteArray bytes(int column) const
    {
        return QByteArray(static_cast<const char *>(sqlite3_column_blob(m_statement, column)),
                          sqlite3_column_bytes(m_statement, column));
    }

private:
    sqlite3_stmt *m_statement = nullptr;
    int m_bound = 0;
};

} // namespace services::vaultd
