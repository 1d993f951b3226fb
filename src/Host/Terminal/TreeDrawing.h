#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// Lines of a tree, drawn before the names of what stands in it.
namespace veltry::TreeDrawing {

enum class Manner {
    graph,    ///< lines lead from each parent to its children
    indented, ///< two blanks a level
};

/// A forest by numbers, children in the order in which they are drawn.
struct Forest {
    std::vector<std::size_t> roots;
    std::vector<std::vector<std::size_t>> children; ///< by their parent's number
};

struct Line {
    std::size_t number;
    std::string lead; ///< what stands before its name; of at most some 40 columns, however deep it lies
    bool startsTree;
};

/// Each parent before its children, all that can be reached from the roots. `isUTF8` allows drawing characters.
[[nodiscard]] std::vector<Line> lines(const Forest& forest, Manner manner, bool isUTF8);

} // namespace veltry::TreeDrawing
