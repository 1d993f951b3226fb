#include "Projects/Statement.h"

#include "Projects/Database.h"

#include <sqlite3.h>

#include <cstring>
#include <limits>

namespace veltry {

namespace {

/// Binds one value by its type, and keeps what SQLite is to read later.
struct Binder {
    sqlite3_stmt* statement;
    int place;
    std::vector<DatabaseError::Argument>& bound;

    const std::string& keep(std::string_view bytes) const
    {
        return std::get<std::string>(bound.emplace_back(std::string(bytes)));
    }

    int operator()(std::nullptr_t) const
    {
        bound.emplace_back(nullptr);
        return sqlite3_bind_null(statement, place);
    }

    int operator()(std::int64_t number) const
    {
        bound.emplace_back(number);
        return sqlite3_bind_int64(statement, place, number);
    }

    int operator()(double number) const
    {
        bound.emplace_back(number);
        return sqlite3_bind_double(statement, place, number);
    }

    int operator()(std::string_view text) const
    {
        const std::string& kept = keep(text);
        // Static for SQLite: `bound` keeps the bytes for as long as they are bound, so SQLite needs no copy.
        return sqlite3_bind_text64(statement, place, kept.data(), kept.size(), SQLITE_STATIC, SQLITE_UTF8);
    }

    int operator()(const UUID& id) const { return (*this)(std::string_view(id.text())); }

    int operator()(const Blob& blob) const
    {
        const std::string& kept = keep(blob.bytes);
        return sqlite3_bind_blob64(statement, place, kept.data(), kept.size(), SQLITE_STATIC);
    }
};

} // namespace

void Statement::Finalizer::operator()(sqlite3_stmt* statement) const noexcept
{
    sqlite3_finalize(statement);
}

Statement::Statement(Connection& connection, Handle handle, const Argument* arguments, std::size_t count)
    : connection_(&connection), handle_(std::move(handle))
{
    bound_.reserve(count); // bound texts mustn't move any more
    for (std::size_t index = 0; index < count; ++index)
        bind(static_cast<int>(index) + 1, arguments[index]);
}

Statement::~Statement()
{
    if (!handle_)
        return;
    // Or the snapshot would outlive its transaction, and no checkpoint could pass it. The result repeats the failure of
    // step(), which has been thrown already.
    sqlite3_reset(handle_.get());
    sqlite3_clear_bindings(handle_.get()); // bound texts go with this object
    connection_->giveBack(std::move(handle_));
}

void Statement::bind(int place, const Argument& argument)
{
    const int code = std::visit(Binder{handle_.get(), place, bound_}, argument.value_);
    if (code != SQLITE_OK)
        throw connection_->error(sqlite3_sql(handle_.get()), bound_);
}

bool Statement::step()
{
    switch (sqlite3_step(handle_.get())) {
    case SQLITE_ROW:
        return true;
    case SQLITE_DONE:
        return false;
    default:
        throw connection_->error(sqlite3_sql(handle_.get()), bound_);
    }
}

// Once for each list of rows and not for each row: a decoder keeps what it found.
int Statement::column(std::string_view name) const
{
    const int count = sqlite3_column_count(handle_.get());
    for (int index = 0; index < count; ++index) {
        const char* candidate = sqlite3_column_name(handle_.get(), index);
        if (candidate && std::strlen(candidate) == name.size() &&
            sqlite3_strnicmp(candidate, name.data(), static_cast<int>(name.size())) == 0) // NOLINT: the size is given
            return index;
    }
    throw DatabaseError(SQLITE_ERROR, "no such column: " + std::string(name), sqlite3_sql(handle_.get()));
}

bool Statement::isNull(int column) const
{
    return sqlite3_column_type(handle_.get(), column) == SQLITE_NULL;
}

std::string_view Statement::text(int column) const
{
    // The text first, then its length: only after it has become a text does SQLite know how long that is.
    const auto* start = reinterpret_cast<const char*>(sqlite3_column_text(handle_.get(), column));
    return start ? std::string_view(start, static_cast<std::size_t>(sqlite3_column_bytes(handle_.get(), column)))
                 : std::string_view();
}

std::string_view Statement::bytes(int column) const
{
    const auto* start = static_cast<const char*>(sqlite3_column_blob(handle_.get(), column));
    return start ? std::string_view(start, static_cast<std::size_t>(sqlite3_column_bytes(handle_.get(), column)))
                 : std::string_view();
}

std::int64_t Statement::integer(int column) const
{
    return sqlite3_column_int64(handle_.get(), column);
}

Date Statement::date(int column) const
{
    return {sqlite3_column_double(handle_.get(), column)};
}

std::optional<UUID> Statement::id(int column) const
{
    return UUID::parse(text(column));
}

std::optional<std::string> Statement::optionalString(int column) const
{
    return isNull(column) ? std::nullopt : std::optional(string(column));
}

std::optional<Date> Statement::optionalDate(int column) const
{
    return isNull(column) ? std::nullopt : std::optional(date(column));
}

std::optional<std::int32_t> Statement::optionalInt32(int column) const
{
    const std::int64_t value = integer(column);
    // SQLite's integers have 64 bits, and another program may have stored more than we can hold.
    if (isNull(column) || value < std::numeric_limits<std::int32_t>::min() ||
        value > std::numeric_limits<std::int32_t>::max())
        return std::nullopt;
    return static_cast<std::int32_t>(value);
}

} // namespace veltry
