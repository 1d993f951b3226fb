#pragma once

#include "Projects/DatabaseError.h"
#include "Projects/Statement.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

struct sqlite3;

namespace veltry {

/// What a body may do with the open file. Every operation throws DatabaseError.
///
/// Statements stay prepared under their text, so that the same one costs little when it comes again.
class Connection {
public:
    /// Opens the file read-write, makes it if it is absent, and puts it into WAL mode. Locks of other processes are
    /// waited for as long as `busyTimeout`. A file that can't be read as a database fails here.
    Connection(const std::filesystem::path& path, std::chrono::milliseconds busyTimeout);
    /// Opens the file for reading, as it is: neither the file nor its WAL change, as they would when the last one that
    /// has them open closes them. Where it is in use, SQLite's file of shared memory may be made.
    explicit Connection(const std::filesystem::path& path);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Runs the text, which may hold several statements; each takes its `?` from the arguments in turn. Rows are
    /// dropped.
    template <typename... Arguments>
    void execute(std::string_view sql, const Arguments&... arguments)
    {
        const std::array<Argument, sizeof...(Arguments)> list{Argument(arguments)...};
        run(sql, list);
    }

    /// One statement whose rows are wanted.
    template <typename... Arguments>
    [[nodiscard]] Statement query(std::string_view sql, const Arguments&... arguments)
    {
        const std::array<Argument, sizeof...(Arguments)> list{Argument(arguments)...};
        return start(sql, list);
    }

    /// The first column of the first row; nothing if there is no row, or if it is NULL.
    template <typename... Arguments>
    [[nodiscard]] std::optional<std::int64_t> firstInteger(std::string_view sql, const Arguments&... arguments)
    {
        Statement row = query(sql, arguments...);
        return row.step() && !row.isNull(0) ? std::optional(row.integer(0)) : std::nullopt;
    }

    /// The first column of every row, as texts.
    template <typename... Arguments>
    [[nodiscard]] std::vector<std::string> texts(std::string_view sql, const Arguments&... arguments)
    {
        std::vector<std::string> result;
        for (Statement row = query(sql, arguments...); row.step();)
            result.push_back(row.string(0));
        return result;
    }

    /// Rows that the last statement inserted, updated or deleted by itself, not through a trigger or a foreign key.
    [[nodiscard]] std::int64_t changes() const noexcept;
    [[nodiscard]] bool isInTransaction() const noexcept;

private:
    friend class Statement;
    friend class Transaction;

    struct Closer {
        void operator()(sqlite3* handle) const noexcept;
    };

    /// What SQLite says of its last failure.
    [[nodiscard]] DatabaseError error(std::string_view sql, std::vector<DatabaseError::Argument> arguments = {}) const;
    void open(const std::string& name, int flags);
    void enterWAL(std::chrono::milliseconds limit);
    void run(std::string_view sql, std::span<const Argument> arguments);
    [[nodiscard]] Statement start(std::string_view sql, std::span<const Argument> arguments);
    /// Prepares the first statement of `sql` and leaves what follows it in `rest`. Null if there is none.
    [[nodiscard]] Statement::Handle prepare(std::string_view sql, std::string_view& rest);
    /// Statements with a place among the prepared ones come back to it.
    void makePlace(const Statement::Handle& handle);
    void giveBack(Statement::Handle handle) noexcept;
    /// Throws SQLite's own error for a statement that writes, while a transaction only reads.
    void refuseWriting(const Statement::Handle& handle) const;

    std::unique_ptr<sqlite3, Closer> handle_;
    bool onlyReads_ = false;
    /// By their text; null while one is in use.
    std::map<std::string, Statement::Handle, std::less<>> prepared_;
};

/// A transaction that is rolled back unless it was committed.
class Transaction {
public:
    enum class Kind {
        reading, ///< one snapshot for all statements; nothing can be written
        writing, ///< waits here for the other writers, and never later
    };

    Transaction(Connection& connection, Kind kind);
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction();
    void commit();

private:
    Connection& connection_;
};

/// One SQLite file, open on one connection, with bodies of statements taking turns on it.
///
/// May be called from any thread and blocks it until its body has ended. A body must not call the database again.
class Database {
public:
    static constexpr std::chrono::milliseconds defaultBusyTimeout = std::chrono::seconds(10);

    struct LookOnly {};
    /// For read() alone: writes nothing anywhere, not even what SQLite does by itself. Throws DatabaseError.
    Database(const std::filesystem::path& path, LookOnly /*unused*/) : connection_(path) {}

    /// Throws DatabaseError; then nothing stays open.
    explicit Database(const std::filesystem::path& path, std::chrono::milliseconds busyTimeout = defaultBusyTimeout)
        : connection_(path, busyTimeout)
    {
    }

    /// Runs `body(Connection&)` in a transaction that sees one snapshot, and returns its result. What it throws is
    /// handed on.
    template <typename Body>
    std::invoke_result_t<Body, Connection&> read(Body&& body)
    {
        return transact(Transaction::Kind::reading, body);
    }

    /// Runs `body(Connection&)` as the only writer of all processes, and returns its result. What it throws is handed
    /// on, and then nothing it wrote stays.
    template <typename Body>
    std::invoke_result_t<Body, Connection&> write(Body&& body)
    {
        return transact(Transaction::Kind::writing, body);
    }

    /// Runs `body(Connection&)` outside any transaction, for statements that can't stand inside one.
    template <typename Body>
    std::invoke_result_t<Body, Connection&> withConnection(Body&& body)
    {
        const std::scoped_lock lock(mutex_);
        return body(connection_);
    }

private:
    template <typename Body>
    std::invoke_result_t<Body, Connection&> transact(Transaction::Kind kind, Body& body)
    {
        const std::scoped_lock lock(mutex_);
        Transaction transaction(connection_, kind);
        if constexpr (std::is_void_v<std::invoke_result_t<Body, Connection&>>) {
            body(connection_);
            transaction.commit();
        } else {
            auto result = body(connection_);
            transaction.commit();
            return result;
        }
    }

    std::mutex mutex_;
    Connection connection_;
};

} // namespace veltry
