#pragma once

#include "Experiments/ExperimentTree.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace veltry {

/// All runs of a project as rows, with a column for each value of their results, and after each number its difference
/// to the parent's and to the baseline's (the result of the run that speaks for that node): "loss", "loss:parent",
/// "loss:baseline". A value that is called like one of the run's own columns is "result.<key>".
class RunTable {
public:
    /// Nothing, a number, or a text.
    using Cell = std::variant<std::monostate, double, std::string>;

    /// `tree` outlives it.
    explicit RunTable(const ExperimentTree& tree);

    struct Row {
        const Run* run;
        const ExperimentTree::Node* node;
    };

    /// By number, until sort().
    [[nodiscard]] const std::vector<Row>& rows() const { return rows_; }

    /// A column by its place in names().
    using Column = std::size_t;
    /// The run's own columns come first: run, node, title, status, exit, began, ended, seconds, commit.
    [[nodiscard]] const std::vector<std::string>& names() const { return names_; }

    /// Throws UsageError with the names that are near.
    [[nodiscard]] Column column(std::string_view name) const;
    [[nodiscard]] bool isDifference(Column column) const;
    /// Dates in ISO 8601.
    [[nodiscard]] Cell cell(const Row& row, Column column) const;
    /// `run` is one of the tree's own.
    [[nodiscard]] const ResultValues& valuesOf(const Run& run) const;
    /// The values of the run that speaks for `node`; empty without one, and for null.
    [[nodiscard]] const ResultValues& valuesOf(const ExperimentTree::Node* node) const;

    /// Keeps the rows for which "KEY OP VALUE" holds: =, !=, <, <=, >, >= (numbers by their size, texts as such, and no
    /// text is more or less than a number), ~ (the text contains it, letter case apart). A column that counts seconds
    /// or bytes takes units: "5 min", "2 GiB". A row without the value doesn't stay. Throws UsageError, which says what
    /// may have been meant.
    void keepWhere(std::string_view condition);
    /// Keeps the last of rows().
    void keepLast(std::size_t count);
    /// Whether all rows() have the same there, be it nothing.
    [[nodiscard]] bool isConstant(Column column) const;
    /// Numbers before texts; rows without the value last, whichever way. Equal rows keep their order.
    void sort(Column column, bool descending);

private:
    enum class Numbers { none, some, only };
    enum class Kind { own, value, toParent, toBaseline };
    struct Definition {
        Kind kind;
        std::size_t own; ///< the place among the run's own columns
        std::string key; ///< of the result
    };

    void define(std::string name, Definition definition);

    const ExperimentTree* tree_;
    std::vector<ResultValues> values_; // of each of the tree's runs, in their places: each text is read once
    std::vector<Row> rows_;
    std::vector<std::string> names_;
    std::vector<Definition> definitions_;
    std::vector<Numbers> numbers_; // of each column, among all runs
};

/// The cell for programs.
[[nodiscard]] std::string exactText(const RunTable::Cell& cell);

} // namespace veltry
