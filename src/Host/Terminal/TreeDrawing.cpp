#include "Host/Terminal/TreeDrawing.h"

#include <algorithm>
#include <string_view>

namespace veltry::TreeDrawing {

namespace {

// A chain may be thousands of nodes deep, and strokes for all of them would fill the line and take quadratic space.
constexpr std::size_t mostLevels = 20;

/// The strokes of one level, two columns each.
struct Strokes {
    std::string_view middle, last, passing, nothing, cut;
};

constexpr Strokes unicode = {"├─", "└─", "│ ", "  ", "… "};
constexpr Strokes ascii = {"|-", "`-", "| ", "  ", "~ "};

/// Where a node hangs: the strokes on its left, of which a deep one keeps those that are near it.
struct Place {
    std::size_t number;
    std::vector<std::string_view> above; // passing strokes, for its line and those of its descendants
    std::string_view own;                // the stroke to its name
    bool isCut;

    void descend(std::string_view stroke)
    {
        above.push_back(stroke);
        if (above.size() <= mostLevels)
            return;
        above.erase(above.begin());
        isCut = true;
    }
};

std::string lead(const Place& place, const Strokes& strokes)
{
    std::string text(place.isCut ? strokes.cut : "");
    for (const std::string_view stroke : place.above)
        text += stroke;
    return text.append(place.own);
}

} // namespace

std::vector<Line> lines(const Forest& forest, Manner manner, bool isUTF8)
{
    const Strokes& strokes = isUTF8 ? unicode : ascii;
    std::vector<Line> lines;
    std::vector<Place> open; // the next one last
    // The stack gives the last first.
    for (auto root = forest.roots.rbegin(); root != forest.roots.rend(); ++root)
        open.push_back({.number = *root, .above = {}, .own = "", .isCut = false});
    std::size_t trees = open.size();
    while (!open.empty()) {
        const bool startsTree = open.size() <= trees && trees > 0;
        if (startsTree)
            --trees;
        Place place = std::move(open.back());
        open.pop_back();
        lines.push_back({.number = place.number, .lead = lead(place, strokes), .startsTree = startsTree});

        const std::vector<std::size_t>& children = forest.children[place.number];
        if (place.own == strokes.middle || place.own == strokes.last)
            place.descend(place.own == strokes.middle ? strokes.passing : strokes.nothing);
        if (manner == Manner::indented)
            place.descend(strokes.nothing);
        for (auto child = children.rbegin(); child != children.rend(); ++child) {
            Place below = place;
            below.number = *child;
            below.own = manner == Manner::indented ? "" : child == children.rbegin() ? strokes.last : strokes.middle;
            open.push_back(std::move(below));
        }
    }
    return lines;
}

} // namespace veltry::TreeDrawing
