#include "Experiments/ResultValues.h"

#include "Base/JSONEvents.h"
#include "Base/Numbers.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

namespace veltry {

namespace {

/// Takes the values out of a document as it is read.
class Flattener final : public JSONEvents {
public:
    void value(JSONValue scalar) override
    {
        if (lists_ > 0)
            return list_.value(std::move(scalar));
        place(scalar);
        leave();
    }

    void key(std::string name) override
    {
        if (lists_ > 0)
            return list_.key(std::move(name));
        starts_.push_back(path_.size());
        path_ += path_.empty() ? name : "." + name;
    }

    void beginObject() override
    {
        if (lists_ > 0)
            return list_.beginObject();
        ++objects_;
    }

    void endObject() override
    {
        if (lists_ > 0)
            return list_.endObject();
        --objects_;
        leave();
    }

    ///  A list is one value, shown as its JSON, whatever it holds.
    void beginArray() override
    {
        list_.beginArray();
        ++lists_;
    }

    void endArray() override
    {
        list_.endArray();
        if (--lists_ > 0)
            return;
        place(list_.take().text());
        list_ = JSONBuilder();
        leave();
    }

    /// A key that is repeated has its last value, in the place of the first.
    ResultValues take()
    {
        std::unordered_map<std::string_view, std::size_t> places;
        std::vector<bool> superseded(values_.size());
        for (std::size_t index = 0; index < values_.size(); ++index) {
            const auto [place, isNew] = places.emplace(values_[index].key, index);
            if (isNew)
                continue;
            values_[place->second].value = values_[index].value;
            superseded[index] = true;
        }
        ResultValues unique;
        for (std::size_t index = 0; index < values_.size(); ++index)
            if (!superseded[index])
                unique.push_back(std::move(values_[index]));
        return unique;
    }

private:
    void place(const JSONValue& scalar)
    {
        const std::string key = objects_ == 0 ? "result" : path_;
        if (const double* number = scalar.number())
            values_.push_back({key, *number});
        else if (const std::string* text = scalar.string())
            values_.push_back({key, *text});
        else if (const bool* flag = scalar.boolean())
            values_.push_back({key, std::string(*flag ? "true" : "false")});
    }

    /// Back to the path of what holds the value that has just been told.
    void leave()
    {
        if (starts_.empty())
            return;
        path_.resize(starts_.back());
        starts_.pop_back();
    }

    ResultValues values_;
    std::string path_;
    std::vector<std::size_t> starts_; // where the names in path_ begin
    int objects_ = 0;
    int lists_ = 0;
    JSONBuilder list_;
};

} // namespace

std::string ResultValue::text() const
{
    // Adding zero makes 0 of -0.
    return number() ? JSONValue(*number() + 0.0).text() : std::get<std::string>(value);
}

ResultValues resultValues(const Run& run)
{
    if (!run.result)
        return {};
    Flattener flattener;
    try {
        readJSON(*run.result, flattener);
    } catch (const JSONValue::Failure&) { // another program wrote it
        return {{"result", *run.result}};
    }
    return flattener.take();
}

const ResultValue* find(const ResultValues& values, std::string_view key)
{
    const auto found = std::ranges::find(values, key, &ResultValue::key);
    return found == values.end() ? nullptr : &*found;
}

const double* findNumber(const ResultValues& values, std::string_view key)
{
    const ResultValue* value = find(values, key);
    return value ? value->number() : nullptr;
}

std::optional<double> difference(const ResultValue& value, const ResultValues& reference)
{
    const double* other = findNumber(reference, value.key);
    // Two numbers that a double holds may differ by more than it holds.
    if (!other || !value.number() || !std::isfinite(*value.number() - *other))
        return std::nullopt;
    return *value.number() - *other;
}

} // namespace veltry
