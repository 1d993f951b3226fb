#include "Projects/DatabaseError.h"

#include <fmt/format.h>

#include <sqlite3.h>

namespace veltry {

DatabaseError::DatabaseError(int code, std::string what, std::string statement, std::vector<Argument> bound)
    : extendedCode(code), message(std::move(what)), sql(std::move(statement)), arguments(std::move(bound))
{
}

bool DatabaseError::isDamage() const noexcept
{
    return primaryCode() == SQLITE_NOTADB || primaryCode() == SQLITE_CORRUPT;
}

bool DatabaseError::isBusy() const noexcept
{
    return primaryCode() == SQLITE_BUSY || primaryCode() == SQLITE_LOCKED;
}

std::string DatabaseError::description() const
{
    if (sql.empty())
        return fmt::format("SQLite error {}: {}", primaryCode(), message);
    return fmt::format("SQLite error {}: {} - while executing `{}`", primaryCode(), message, sql);
}

} // namespace veltry
