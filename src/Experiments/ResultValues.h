#pragma once

#include "Projects/Run.h"

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace veltry {

/// One value of a run's result, under the name of its column.
struct ResultValue {
    std::string key; ///< "val_loss"; of an object inside another "eval.loss"
    std::variant<double, std::string> value;

    [[nodiscard]] const double* number() const { return std::get_if<double>(&value); }
    /// In full, for programs.
    [[nodiscard]] std::string text() const;

    friend bool operator==(const ResultValue&, const ResultValue&) = default;
};

using ResultValues = std::vector<ResultValue>;

/// The run's result flattened into columns, in the order of its text. Flags are texts, a list is one text in JSON, a
/// null is left out. Of a text that isn't a JSON object the whole is the value of the key "result". Empty if the run
/// has no result.
[[nodiscard]] ResultValues resultValues(const Run& run);

/// Or null.
[[nodiscard]] const ResultValue* find(const ResultValues& values, std::string_view key);
/// The number under the key, or null.
[[nodiscard]] const double* findNumber(const ResultValues& values, std::string_view key);

/// How far the value lies above the number of the same key. Nothing where either is no number, and for a distance that
/// a double can't hold.
[[nodiscard]] std::optional<double> difference(const ResultValue& value, const ResultValues& reference);

} // namespace veltry
