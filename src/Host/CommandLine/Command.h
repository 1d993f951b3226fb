#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

class Context;
class Arguments;

/// One option or argument of a command, as a row of its table.
struct Option {
    enum class Count { optional, required, many, oneOrMore };
    /// What a shell offers for it.
    enum class Completion { none, file, folder, project, node, run, round, conversation, setting, starter };

    std::string_view names; ///< "--sort", "-n,--lines", or for an argument by its place "NODE"
    std::string_view value; ///< what follows an option, "KEY"; empty for a flag and for an argument
    std::string_view help;  ///< a line without a full stop
    Count count = Count::optional;
    Completion completion = Completion::none;
    std::string_view choices = {}; ///< the values that it takes, "min max"; any where there are none

    [[nodiscard]] bool isArgument() const { return !names.starts_with('-'); }
    [[nodiscard]] bool isFlag() const { return !isArgument() && value.empty(); }
    /// "--lines" of "-n,--lines": the name by which Arguments knows it.
    [[nodiscard]] std::string_view name() const { return names.substr(names.rfind(',') + 1); }
};

/// One command, as a row of a table. The options, the manual page and the shells' completions are made from it.
struct Command {
    /// What it works with, and so which of the common options it takes.
    enum class Scope {
        nothing,
        store,   ///< --db
        project, ///< --db and --project
    };

    std::string_view name;         ///< "tree", "project rename"
    std::string_view summary;      ///< a line without a full stop
    std::string_view example;      ///< a whole command line; several stand on lines of their own
    std::string_view details = {}; ///< for the manual page: sentences on what the summary can't say
    Scope scope = Scope::project;
    bool hasJSON = false; ///< shows something, and so takes --json
    bool hidden = false;  ///< for programs: no help, manual page or completion names it
    std::span<const Option> options;
    void (*run)(Context& context, const Arguments& arguments);

    /// "project" of "project rename".
    [[nodiscard]] std::string_view firstWord() const { return name.substr(0, name.find(' ')); }
    /// "rename" of "project rename"; empty for a command of one word.
    [[nodiscard]] std::string_view secondWord() const
    {
        return firstWord() == name ? std::string_view() : name.substr(firstWord().size() + 1);
    }
};

/// What was given on the command line, by the names of options and arguments that the command declares.
class Arguments {
public:
    void add(std::string_view name, std::vector<std::string> values) { values_[std::string(name)] = std::move(values); }

    [[nodiscard]] bool has(std::string_view name) const { return values_.contains(name); }
    [[nodiscard]] std::optional<std::string> text(std::string_view name) const;
    /// The value of a required option or argument.
    [[nodiscard]] std::string required(std::string_view name) const;
    [[nodiscard]] std::vector<std::string> all(std::string_view name) const;
    /// Throws UsageError for what isn't a whole number of at least `least`.
    [[nodiscard]] std::optional<std::int64_t> integer(std::string_view name, std::int64_t least = 0) const;
    /// Throws UsageError for what isn't a number.
    [[nodiscard]] std::optional<double> number(std::string_view name) const;

private:
    std::map<std::string, std::vector<std::string>, std::less<>> values_;
};

} // namespace veltry
