#pragma once

#include "Base/UUID.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace veltry {

/// What names a node to Lab: its id. Whoever holds a record gives the id; whoever was given a text reads it here, where
/// it comes in. A text that is no id names no node, which Lab tells when it looks, in the words that were given.
class NodeName {
public:
    NodeName(const UUID& id) : id_(id) {}
    /// An id in any letter case.
    [[nodiscard]] static NodeName parse(std::string_view text);

    /// Nothing if the text was no id.
    [[nodiscard]] const std::optional<UUID>& id() const { return id_; }
    /// As it was given.
    [[nodiscard]] std::string text() const { return id_ && given_.empty() ? id_->text() : given_; }

private:
    NodeName(std::optional<UUID> id, std::string_view given) : id_(id), given_(given) {}

    std::optional<UUID> id_;
    std::string given_;
};

/// The same for a run, which is named by its number in the project or by its id.
class RunName {
public:
    RunName(std::int64_t number) : name_(number) {}
    RunName(const UUID& id) : name_(id) {}
    /// The number, with or without "#" at either end, or else the id in any letter case.
    [[nodiscard]] static RunName parse(std::string_view text);

    /// Null if it isn't named by a number.
    [[nodiscard]] const std::int64_t* number() const { return std::get_if<std::int64_t>(&name_); }
    /// Null if it isn't named by its id.
    [[nodiscard]] const UUID* id() const { return std::get_if<UUID>(&name_); }
    /// As it was given.
    [[nodiscard]] std::string text() const;

private:
    explicit RunName(std::string_view given) : given_(given) {}

    std::variant<std::monostate, std::int64_t, UUID> name_;
    std::string given_;
};

} // namespace veltry
