#pragma once

#include "Base/Date.h"
#include "Base/UUID.h"
#include "Projects/DatabaseError.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

struct sqlite3_stmt;

namespace veltry {

class Connection;

/// Bytes that are bound as a BLOB, where a text would be bound as TEXT.
struct Blob {
    std::string_view bytes;
};

/// A value for a `?`, in the encoding of its column: identifiers as upper-case text, dates as seconds since 2001, paths
/// as plain text, flags as 0 or 1, an absent optional as NULL. It borrows texts until the call that takes it returns.
class Argument {
public:
    Argument(std::nullopt_t) {}

    template <std::integral Number>
    Argument(Number number) : value_(static_cast<std::int64_t>(number))
    {
    }

    Argument(double number) : value_(number) {}

    Argument(std::string_view text) : value_(text) {}

    Argument(const std::string& text) : value_(std::string_view(text)) {}

    Argument(const char* text) : value_(std::string_view(text)) {}

    Argument(const std::filesystem::path& path) : value_(std::string_view(path.native())) {}

    Argument(Blob blob) : value_(blob) {}

    Argument(const UUID& id) : value_(id) {}

    Argument(Date date) : value_(date.secondsSince2001) {}

    template <typename Value>
    Argument(const std::optional<Value>& value) : Argument(value ? Argument(*value) : Argument(std::nullopt))
    {
    }

private:
    friend class Statement;
    std::variant<std::nullptr_t, std::int64_t, double, std::string_view, Blob, UUID> value_;
};

/// A prepared statement with its arguments, and the row that it stands on.
///
/// Made by Connection; lives within one body of Database::read or Database::write. Texts that it gives as views end
/// with the next step().
class Statement {
public:
    Statement(Statement&&) noexcept = default;
    Statement& operator=(Statement&&) = delete;
    ~Statement();

    /// On to the next row; false if there is none, or no more. Throws DatabaseError.
    bool step();

    /// The index of the column with that name, in any letter case. Throws DatabaseError if there is none.
    [[nodiscard]] int column(std::string_view name) const;

    // The row's values, by column index, converted as SQLite converts them.

    [[nodiscard]] bool isNull(int column) const;
    [[nodiscard]] std::string_view text(int column) const;  ///< the bytes as they are stored, valid UTF-8 or not
    [[nodiscard]] std::string_view bytes(int column) const; ///< of a BLOB
    [[nodiscard]] std::int64_t integer(int column) const;

    [[nodiscard]] bool flag(int column) const { return integer(column) != 0; }

    [[nodiscard]] Date date(int column) const;
    /// Nothing for NULL, and for a text that is no identifier.
    [[nodiscard]] std::optional<UUID> id(int column) const;

    [[nodiscard]] std::string string(int column) const { return std::string(text(column)); }

    [[nodiscard]] std::filesystem::path path(int column) const { return std::filesystem::path(text(column)); }

    /// Nothing for NULL.
    [[nodiscard]] std::optional<std::string> optionalString(int column) const;
    [[nodiscard]] std::optional<Date> optionalDate(int column) const;
    /// Nothing for NULL, and for a number beyond 32 bits.
    [[nodiscard]] std::optional<std::int32_t> optionalInt32(int column) const;

    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const noexcept;
    };

    using Handle = std::unique_ptr<sqlite3_stmt, Finalizer>;

private:
    friend class Connection;
    /// `arguments` are as many as the statement has `?`.
    Statement(Connection& connection, Handle handle, const Argument* arguments, std::size_t count);
    void bind(int place, const Argument& argument);

    Connection* connection_;
    Handle handle_;
    std::vector<DatabaseError::Argument> bound_; ///< what SQLite reads while it runs, and what an error tells
};

} // namespace veltry
