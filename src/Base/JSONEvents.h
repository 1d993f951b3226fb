#pragma once

#include "Base/JSONValue.h"

#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// Takes in what a JSON text holds, in its order: for a reader that wants less than the whole document in memory. What
/// a member throws ends the reading and reaches the caller of readJSON().
class JSONEvents {
public:
    virtual ~JSONEvents() = default;

    virtual void value(JSONValue scalar) = 0; ///< null, a flag, a number or a text
    virtual void key(std::string name) = 0;   ///< before the value of each member
    virtual void beginObject() = 0;
    virtual void endObject() = 0;
    virtual void beginArray() = 0;
    virtual void endArray() = 0;
};

/// Tells `events` of the text, under the rules of JSONValue::parse(). Throws JSONValue::Failure as that does; the
/// events before the place at fault have then been told.
void readJSON(std::string_view text, JSONEvents& events);

/// Makes the document of the events.
class JSONBuilder final : public JSONEvents {
public:
    void value(JSONValue scalar) override { place(std::move(scalar)); }
    void key(std::string name) override { key_ = std::move(name); }
    void beginObject() override { open(JSONValue::Object()); }
    void endObject() override { open_.pop_back(); }
    void beginArray() override { open(JSONValue::Array()); }
    void endArray() override { open_.pop_back(); }

    /// The document, once all events are told.
    [[nodiscard]] JSONValue take() { return std::move(root_); }

private:
    JSONValue& place(JSONValue value);
    // What is open stays put: its parent isn't touched meanwhile.
    void open(JSONValue container) { open_.push_back(&place(std::move(container))); }

    JSONValue root_;
    std::vector<JSONValue*> open_; // innermost last
    std::string key_;
};

} // namespace veltry
