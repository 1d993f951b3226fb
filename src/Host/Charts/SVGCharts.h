#pragma once

#include "Host/Charts/Chart.h"

#include <cstddef>
#include <string>
#include <string_view>

/// Charts as SVG: a document of their own, or pieces of a page.
namespace veltry::SVGCharts {

/// A place in a drawing's units, which are a browser's pixels at full size.
struct Box {
    double left, top, width, height;
};

/// One panel's size and where its lines are drawn.
struct Frame {
    double width, height;
    Box plot;
    [[nodiscard]] static Frame of(const Chart& chart);
};

/// The classes that the drawings use, in light colours and, where the reader asks for them, dark ones.
[[nodiscard]] std::string_view style();

/// What one panel draws, without title and legend, from the place 0, 0 on. `number` makes its names unlike those of
/// other panels in the same document.
[[nodiscard]] std::string panel(const Chart& chart, std::size_t number);

/// A whole document with all panels, headline numbers and what was dropped, under `heading`.
[[nodiscard]] std::string document(const TelemetryCharts& charts, std::string_view heading);

/// The text as it may stand in XML and HTML, in quotes too: on one line, with references for what means something.
[[nodiscard]] std::string escaped(std::string_view text);

} // namespace veltry::SVGCharts
