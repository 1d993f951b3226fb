#include "Projects/Database.h"

#include <fmt/format.h>

#include <sqlite3.h>

#include <algorithm>
#include <iterator>
#include <thread>

namespace veltry {

namespace {

/// A store has about forty statements; what comes beyond is prepared each time. Those that nobody
/// used take no memory: a supervisor, which lives as long as its run, keeps a handful.
constexpr std::size_t maximumPrepared = 64;

constexpr auto shortestPause = std::chrono::milliseconds(1);
constexpr auto longestPause = std::chrono::milliseconds(25);

bool isEmpty(std::string_view sql)
{
    return sql.find_first_not_of(" \t\r\n;") == std::string_view::npos;
}

bool holdsBytes(const std::filesystem::path& file)
{
    std::error_code missing;
    return std::filesystem::file_size(file, missing) > 0 && !missing;
}

/// As SQLite reads one with options: the path's own bytes, and three characters that would end it escaped.
std::string addressOf(const std::filesystem::path& path, std::string_view option)
{
    const std::filesystem::path whole = std::filesystem::absolute(path);
    std::string address = "file:";
    for (const char c : whole.native()) {
        if (c == '%' || c == '?' || c == '#')
            fmt::format_to(std::back_inserter(address), "%{:02X}", static_cast<unsigned>(c));
        else
            address += c;
    }
    return fmt::format("{}?{}", address, option);
}

} // namespace

void Connection::Closer::operator()(sqlite3* handle) const noexcept
{
    sqlite3_close_v2(handle);
}

void Connection::open(const std::string& name, int flags)
{
    sqlite3* opened = nullptr;
    // Without SQLite's own mutex: Database lets one thread at a time come here.
    const int code = sqlite3_open_v2(name.c_str(), &opened, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    handle_.reset(opened); // there is one even where opening fails
    if (code != SQLITE_OK)
        throw opened ? error({}) : DatabaseError(code, sqlite3_errstr(code));
    sqlite3_extended_result_codes(opened, 1);
    // Or a column that is misspelt in double quotes would be read as a text.
    sqlite3_db_config(opened, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
    sqlite3_db_config(opened, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
}

Connection::Connection(const std::filesystem::path& path, std::chrono::milliseconds busyTimeout)
{
    const bool hasWAL = holdsBytes(path.string() + "-wal");
    open(path.string(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    sqlite3_busy_timeout(handle_.get(), static_cast<int>(busyTimeout.count()));
    // Whoever closes a file as the last one merges the WAL into it and removes it: into a file that can't be read, or
    // into one that has another name by now, beside whose old place another's WAL lies.
    sqlite3_db_config(handle_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, hasWAL ? 1 : 0, nullptr);
    execute("PRAGMA foreign_keys = ON");
    enterWAL(busyTimeout);
    execute("SELECT * FROM sqlite_master LIMIT 1"); // an unreadable file fails here at the latest
    sqlite3_db_config(handle_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
}

Connection::Connection(const std::filesystem::path& path)
{
    // Without these two nobody has it open, and nothing has to be shared with anybody.
    const bool isAtRest = !holdsBytes(path.string() + "-wal") && !holdsBytes(path.string() + "-shm");
    open(addressOf(path, isAtRest ? "immutable=1" : "mode=ro"), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
    sqlite3_busy_timeout(handle_.get(), static_cast<int>(Database::defaultBusyTimeout.count()));
    sqlite3_db_config(handle_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    execute("SELECT * FROM sqlite_master LIMIT 1");
}

/// SQLite's own busy time-out doesn't cover the switch of the journal mode: where another process opens the same new
/// file, the pragma fails at once.
void Connection::enterWAL(std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (auto pause = shortestPause;; pause = std::min(pause * 2, longestPause)) {
        try {
            execute("PRAGMA journal_mode = WAL");
            return;
        } catch (const DatabaseError& failure) {
            if (failure.primaryCode() != SQLITE_BUSY || std::chrono::steady_clock::now() + pause > deadline)
                throw;
        }
        std::this_thread::sleep_for(pause);
    }
}

DatabaseError Connection::error(std::string_view sql, std::vector<DatabaseError::Argument> arguments) const
{
    return DatabaseError(
        sqlite3_extended_errcode(handle_.get()), sqlite3_errmsg(handle_.get()), std::string(sql), std::move(arguments));
}

Statement::Handle Connection::prepare(std::string_view sql, std::string_view& rest)
{
    sqlite3_stmt* statement = nullptr;
    const char* tail = nullptr;
    const int code = sqlite3_prepare_v3(
        handle_.get(), sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &statement, &tail);
    if (code != SQLITE_OK)
        throw error(sql);
    rest = sql.substr(static_cast<std::size_t>(tail - sql.data()));
    return Statement::Handle(statement);
}

Statement Connection::start(std::string_view sql, std::span<const Argument> arguments)
{
    // Taken out while it is in use: the same text inside the rows of itself gets a statement of its own.
    const auto found = prepared_.find(sql);
    Statement::Handle handle;
    if (found != prepared_.end())
        handle = std::move(found->second);
    if (!handle) {
        std::string_view rest;
        handle = prepare(sql, rest);
        if (!handle || !isEmpty(rest))
            throw DatabaseError(SQLITE_MISUSE, "exactly one statement is wanted", std::string(sql));
        makePlace(handle);
    }
    refuseWriting(handle);
    if (sqlite3_bind_parameter_count(handle.get()) != static_cast<int>(arguments.size()))
        throw DatabaseError(SQLITE_MISUSE, "wrong number of statement arguments", std::string(sql));
    return Statement(*this, std::move(handle), arguments.data(), arguments.size());
}

void Connection::run(std::string_view sql, std::span<const Argument> arguments)
{
    if (prepared_.contains(sql)) {
        for (Statement statement = start(sql, arguments); statement.step();)
            continue;
        return;
    }
    // One after the other, since a statement may need the table that the one before it makes.
    for (bool whole = true; !isEmpty(sql); whole = false) {
        std::string_view rest;
        Statement::Handle handle = prepare(sql, rest);
        if (handle) { // a comment is none
            if (whole && isEmpty(rest))
                makePlace(handle);
            refuseWriting(handle);
            const auto wanted = static_cast<std::size_t>(sqlite3_bind_parameter_count(handle.get()));
            if (wanted > arguments.size())
                throw DatabaseError(SQLITE_MISUSE, "too few statement arguments", std::string(sql));
            for (Statement statement(*this, std::move(handle), arguments.data(), wanted); statement.step();)
                continue;
            arguments = arguments.subspan(wanted);
        }
        sql = rest;
    }
    if (!arguments.empty())
        throw DatabaseError(SQLITE_MISUSE, "too many statement arguments", std::string(sql));
}

/// What `PRAGMA query_only` would do. But setting that makes SQLite prepare every statement anew, and a read sets it
/// twice: an experiment_tree of an empty project took 50 microseconds with it and takes 20 without.
void Connection::refuseWriting(const Statement::Handle& handle) const
{
    if (onlyReads_ && sqlite3_stmt_readonly(handle.get()) == 0)
        throw DatabaseError(SQLITE_READONLY, sqlite3_errstr(SQLITE_READONLY), sqlite3_sql(handle.get()));
}

void Connection::makePlace(const Statement::Handle& handle)
{
    const std::string_view sql = sqlite3_sql(handle.get());
    // Most pragmas take effect while they are prepared, so that an old one would do nothing.
    if (prepared_.size() < maximumPrepared && !sql.starts_with("PRAGMA"))
        prepared_.try_emplace(std::string(sql));
}

void Connection::giveBack(Statement::Handle handle) noexcept
{
    // No place: it was one too many, a pragma, or the second of the same text. It goes with the handle.
    const auto place = prepared_.find(std::string_view(sqlite3_sql(handle.get())));
    if (place != prepared_.end() && !place->second)
        place->second = std::move(handle);
}

std::int64_t Connection::changes() const noexcept
{
    return sqlite3_changes64(handle_.get());
}

bool Connection::isInTransaction() const noexcept
{
    return sqlite3_get_autocommit(handle_.get()) == 0;
}

Transaction::Transaction(Connection& connection, Kind kind) : connection_(connection)
{
    // A writer takes the lock here, where the busy time-out applies. SQLite doesn't wait when a reader becomes a
    // writer.
    connection.execute(kind == Kind::writing ? "BEGIN IMMEDIATE TRANSACTION" : "BEGIN DEFERRED TRANSACTION");
    connection.onlyReads_ = kind == Kind::reading;
}

Transaction::~Transaction()
{
    connection_.onlyReads_ = false;
    try {
        if (connection_.isInTransaction()) // some failures have rolled it back already
            connection_.execute("ROLLBACK TRANSACTION");
    } catch (const DatabaseError&) {
        return; // the failure that led here is on its way to the caller
    }
}

void Transaction::commit()
{
    connection_.execute("COMMIT TRANSACTION");
}

} // namespace veltry
