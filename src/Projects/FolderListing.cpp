#include "Projects/FolderListing.h"

#include "Platform/SystemError.h"

#include <unicode/coll.h>
#include <unicode/locid.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <tuple>

namespace veltry::FolderListing {

namespace {

/// Gives each name a key; names sort as the bytes of their keys do.
class NameOrder {
public:
    NameOrder()
    {
        UErrorCode status = U_ZERO_ERROR;
        // Under the "C" locale ICU would put all capitals first, which is an order for programs.
        const bool isPOSIX = std::string_view(icu::Locale::getDefault().getVariant()) == "POSIX";
        const icu::Locale& locale = isPOSIX ? icu::Locale::getRoot() : icu::Locale::getDefault();
        collator_.reset(icu::Collator::createInstance(locale, status));
        if (collator_)
            collator_->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
        if (U_FAILURE(status))
            collator_.reset(); // no data of that library: bytes are an order too
    }

    [[nodiscard]] std::string key(const std::string& name) const
    {
        if (!collator_)
            return name;
        const icu::UnicodeString text = icu::UnicodeString::fromUTF8(name);
        std::string key(static_cast<std::size_t>(collator_->getSortKey(text, nullptr, 0)), '\0');
        collator_->getSortKey(text, reinterpret_cast<std::uint8_t*>(key.data()), static_cast<std::int32_t>(key.size()));
        return key;
    }

private:
    std::unique_ptr<icu::Collator> collator_;
};

struct Sortable {
    FolderEntry entry;
    std::string key;

    /// Names that the language takes for the same still have an order.
    [[nodiscard]] auto place() const { return std::tie(key, entry.path.native()); }
};

bool isListed(const std::filesystem::path& name)
{
    return std::ranges::find(hidden, name.native()) == hidden.end();
}

} // namespace

std::vector<FolderEntry> entries(const std::filesystem::path& in)
{
    const NameOrder order;
    std::vector<Sortable> found;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(in, error), end; !error && entry != end; entry.increment(error)) {
        if (!isListed(entry->path().filename()))
            continue;
        std::error_code unreadable; // then it is no folder
        FolderEntry listed{.path = entry->path(), .isDirectory = entry->is_directory(unreadable)};
        std::string key = order.key(listed.name());
        found.push_back({.entry = std::move(listed), .key = std::move(key)});
    }
    if (error)
        throw SystemError("could not read the folder " + in.string(), error.value());
    std::ranges::sort(found, [](const Sortable& left, const Sortable& right) {
        if (left.entry.isDirectory != right.entry.isDirectory)
            return left.entry.isDirectory;
        return left.place() < right.place();
    });
    std::vector<FolderEntry> sorted;
    sorted.reserve(found.size());
    for (Sortable& one : found)
        sorted.push_back(std::move(one.entry));
    return sorted;
}

} // namespace veltry::FolderListing
