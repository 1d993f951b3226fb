#pragma once

#include "Base/Error.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace veltry {

/// What SQLite could not do.
struct DatabaseError : Error {
    using Argument = std::variant<std::nullptr_t, std::int64_t, double, std::string>;

    /// `code` is SQLite's extended result code, `what` its own words.
    DatabaseError(int code, std::string what, std::string statement = {}, std::vector<Argument> bound = {});

    /// SQLite's primary result code: the low 8 bits of the extended one.
    [[nodiscard]] int primaryCode() const noexcept { return extendedCode & 0xFF; }

    /// The file is no store, or not a whole one.
    [[nodiscard]] bool isDamage() const noexcept;
    /// Others were writing for longer than a write waits.
    [[nodiscard]] bool isBusy() const noexcept;

    /// "SQLite error 5: database is locked", followed by " - while executing `<sql>`" if there is SQL. The arguments
    /// are left out, since they may be long and are the user's own.
    [[nodiscard]] std::string description() const override;

    int extendedCode;
    std::string message;
    std::string sql;
    std::vector<Argument> arguments;
};

} // namespace veltry
