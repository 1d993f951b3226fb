#include "Literature/OpenAlexDocument.h"

#include "Base/JSONEvents.h"
#include "Literature/PaperSearch.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace veltry::OpenAlexDocument {

namespace {

/// What all abstracts of one answer may hold, in bytes. An index names each word once and can repeat it at little cost,
/// so that without a limit an answer of a megabyte could ask for many gigabytes. Real ones stay far below it.
class AbstractBudget {
public:
    explicit AbstractBudget(std::size_t bodySize) : left_(least + 4 * bodySize) {}

    void spend(std::size_t bytes)
    {
        if (bytes > left_)
            unreadable();
        left_ -= bytes;
    }

private:
    static constexpr std::size_t least = 1U << 20;
    std::size_t left_;
};

/// The words of one abstract with their positions, put in order.
class Abstract {
public:
    void add(std::string word) { words_.push_back(std::move(word)); }

    /// The place of the word that was added last.
    void addPosition(std::int64_t position) { places_.push_back({.position = position, .word = words_.size() - 1}); }

    [[nodiscard]] std::size_t lastLength() const { return words_.back().size(); }

    /// Nothing if no word has a position.
    [[nodiscard]] std::optional<std::string> text()
    {
        if (places_.empty())
            return std::nullopt;
        order();
        std::string text;
        for (const Place& place : places_)
            text.append(words_[place.word]).append(" ");
        text.pop_back();
        return text;
    }

private:
    struct Place {
        std::int64_t position;
        std::size_t word; // index in `words_`
    };

    /// Puts each at the index that its position says, where they count from 0 without a gap; others are sorted.
    void order()
    {
        std::vector<Place> ordered(places_.size(), {.position = -1, .word = 0});
        for (const Place& place : places_) {
            const bool fits = place.position >= 0 && std::cmp_less(place.position, ordered.size());
            // Positions come from a stranger: sorting copes with any, and costs more.
            if (!fits || ordered[static_cast<std::size_t>(place.position)].position != -1)
                return std::ranges::sort(places_, {}, &Place::position), void();
            ordered[static_cast<std::size_t>(place.position)] = place;
        }
        places_ = std::move(ordered);
    }

    std::vector<std::string> words_;
    std::vector<Place> places_;
};

/// Makes the document of an answer.
class AnswerReader final : public JSONEvents {
public:
    /// The works stand at this depth of containers, the root's being 1.
    AnswerReader(int depthOfWorks, std::size_t bodySize) : depthOfWorks_(depthOfWorks), budget_(bodySize) {}

    void value(JSONValue scalar) override
    {
        if (abstract_)
            addPosition(scalar);
        else if (isAbstract() && !scalar.isNull())
            unreadable();
        else
            document_.value(std::move(scalar));
    }

    void key(std::string name) override
    {
        if (abstract_)
            return abstract_->add(std::move(name));
        if (depth_ == 1)
            isInResults_ = name == "results";
        isAbstractKey_ = name == "abstract_inverted_index";
        document_.key(std::move(name));
    }

    void beginObject() override
    {
        if (abstract_)
            unreadable();
        if (isAbstract()) {
            abstract_.emplace();
            return;
        }
        ++depth_;
        isAbstractKey_ = false;
        document_.beginObject();
    }

    void endObject() override
    {
        if (abstract_) {
            std::optional<std::string> text = abstract_->text();
            abstract_.reset();
            return document_.value(text ? JSONValue(std::move(*text)) : JSONValue());
        }
        --depth_;
        document_.endObject();
    }

    void beginArray() override
    {
        if (abstract_ ? isInPositions_ : isAbstract())
            unreadable();
        if (abstract_) {
            isInPositions_ = true;
            return;
        }
        ++depth_;
        isAbstractKey_ = false;
        document_.beginArray();
    }

    void endArray() override
    {
        if (abstract_) {
            isInPositions_ = false;
            return;
        }
        --depth_;
        document_.endArray();
    }

    [[nodiscard]] JSONValue take() { return document_.take(); }

private:
    [[nodiscard]] bool isAbstract() const
    {
        return isAbstractKey_ && depth_ == depthOfWorks_ && (depth_ == 1 || isInResults_);
    }

    void addPosition(const JSONValue& scalar)
    {
        if (!isInPositions_)
            unreadable();
        abstract_->addPosition(integerOf(scalar));
        budget_.spend(abstract_->lastLength() + 1);
    }

    int depthOfWorks_;
    AbstractBudget budget_;
    JSONBuilder document_;
    int depth_ = 0;
    bool isInResults_ = false;
    bool isAbstractKey_ = false; // the last key that the document got
    bool isInPositions_ = false;
    std::optional<Abstract> abstract_; // while its index is read
};

JSONValue documentOf(std::string_view body, int depthOfWorks)
{
    try {
        AnswerReader reader(depthOfWorks, body.size());
        readJSON(body, reader);
        return reader.take();
    } catch (const JSONValue::Failure&) {
        unreadable();
    }
}

} // namespace

JSONValue page(std::string_view body)
{
    // Root, list of results, work.
    return documentOf(body, 3);
}

JSONValue work(std::string_view body)
{
    return documentOf(body, 1);
}

void unreadable()
{
    throw PaperSearchError(PaperSearchError::Kind::unreadable);
}

std::int64_t integerOf(const JSONValue& value)
{
    const std::optional<std::int64_t> whole = value.integer();
    if (!whole || std::trunc(*value.number()) != *value.number())
        unreadable();
    return *whole;
}

} // namespace veltry::OpenAlexDocument
