#pragma once

#include <exception>
#include <string>

namespace veltry {

/// Root of all failures that a caller may meet: the type says which one it is, the fields what happened.
///
/// An operation that can fail throws one of these and names it in its comment. Only the top of a mode or of a tool
/// makes text of it.
class Error : public std::exception {
public:
    /// The whole text form, for a reader.
    [[nodiscard]] virtual std::string description() const = 0;

    /// description(), kept in this object, for code that knows std::exception alone.
    [[nodiscard]] const char* what() const noexcept override;

private:
    mutable std::string what_;
};

/// The text form of anything that was thrown: description() of an Error, what() of another exception.
[[nodiscard]] std::string describe(const std::exception& error);

} // namespace veltry
