#include "Host/Charts/HTMLCharts.h"

#include "Base/JSONValue.h"
#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Host/Charts/Chart.h"
#include "Host/Charts/SVGCharts.h"

#include <fmt/format.h>

#include <algorithm>

namespace veltry::HTMLCharts {

namespace {

using SVGCharts::escaped;

constexpr std::string_view pageStyle = R"css(
:root{color-scheme:light dark;--paper:#f6f7f9;--card:#fff;--ink:#1c2024;--soft:#5b6470;--edge:#e1e4e8;--warn:#fff6e0;--on-warn:#6b4a00}
@media (prefers-color-scheme:dark){:root{--paper:#0d0f12;--card:#14171c;--ink:#e8eaed;--soft:#9aa4b2;--edge:#262b33;--warn:#33270a;--on-warn:#ffd98a}}
*{box-sizing:border-box}
body{margin:0;background:var(--paper);color:var(--ink);font:15px/1.45 system-ui,-apple-system,'Segoe UI',sans-serif}
main{max-width:1240px;margin:0 auto;padding:28px 20px 48px}
h1,.subtitle,dl.stats div,ul.legend li,.remark,.notice,#tip{overflow-wrap:anywhere}
h1{font-size:24px;line-height:1.2;margin:0}
.subtitle{font-size:16px;color:var(--soft);margin:4px 0 0}
dl.facts{display:flex;flex-wrap:wrap;gap:6px 28px;margin:14px 0 0;font-size:13px}
dl.facts div{display:flex;gap:8px;min-width:0}
dl.facts dt{color:var(--soft)}
dl.facts dd{margin:0;overflow-wrap:anywhere;font-family:ui-monospace,'DejaVu Sans Mono',monospace;font-size:12.5px}
dl.stats{display:flex;flex-wrap:wrap;gap:12px;margin:20px 0 0}
dl.stats div{background:var(--card);border:1px solid var(--edge);border-radius:8px;padding:10px 18px;min-width:120px;max-width:100%}
dl.stats dt{font-size:12.5px;color:var(--soft)}
dl.stats dd{margin:2px 0 0;font-size:22px;font-weight:600;font-variant-numeric:tabular-nums}
.panels{display:grid;grid-template-columns:repeat(2,minmax(0,1fr));gap:16px;margin-top:20px}
figure{margin:0;background:var(--card);border:1px solid var(--edge);border-radius:8px;padding:14px 16px 10px;min-width:0}
figure.wide{grid-column:1/-1}
figcaption{font-weight:600;overflow-wrap:anywhere}
ul.legend{list-style:none;display:flex;flex-wrap:wrap;gap:2px 18px;margin:4px 0 6px;padding:0;font-size:13px;color:var(--soft)}
ul.legend li{display:flex;align-items:center;gap:7px;min-width:0;max-width:100%}
ul.legend b{flex:none;color:var(--ink);font-weight:600;font-variant-numeric:tabular-nums}
ul.legend svg{width:18px;height:4px;flex:none}
.plot{overflow-x:auto}
.plot svg{display:block;width:100%;height:auto;touch-action:pan-y}
.remark{margin:4px 0 0;font-size:12.5px;color:var(--soft)}
.notice{margin:20px 0 0;background:var(--warn);color:var(--on-warn);border-radius:8px;padding:10px 16px;font-size:14px}
.h line{stroke:var(--soft);stroke-dasharray:3 3}
.h circle{stroke:var(--card);stroke-width:1.5}
#tip{position:fixed;pointer-events:none;background:var(--ink);color:var(--paper);border-radius:6px;padding:6px 10px;font-size:12.5px;line-height:1.5;max-width:min(480px,calc(100vw - 8px));font-variant-numeric:tabular-nums;z-index:1}
#tip[hidden]{display:none}
@media (max-width:800px){.panels{grid-template-columns:minmax(0,1fr)}.plot svg{min-width:440px}figure.wide .plot svg{min-width:720px}}
@media print{body{background:#fff}figure{break-inside:avoid}}
)css";

// Shows the values nearest to the pointer. It makes no markup of texts, only text nodes.
constexpr std::string_view script = R"js(
(() => {
  const data = JSON.parse(document.getElementById('data').textContent);
  const tip = document.getElementById('tip');
  const shape = (name, attributes) => {
    const element = document.createElementNS('http://www.w3.org/2000/svg', name);
    for (const [key, value] of Object.entries(attributes)) element.setAttribute(key, value);
    return element;
  };
  const number = (value) => {
    const size = Math.abs(value);
    return size !== 0 && (size < 1e-4 || size >= 1e9) ? value.toExponential(4)
      : value.toLocaleString('en-US', {maximumSignificantDigits: 6});
  };
  for (const figure of document.querySelectorAll('figure[data-panel]')) {
    const panel = data[figure.dataset.panel];
    const svg = figure.querySelector('.plot svg');
    const layer = svg.appendChild(shape('g', {class: 'h'}));
    const [left, top, width, height] = panel.plot;
    const [xLow, xHigh] = panel.x;
    const [yLow, yHigh] = panel.y;
    // In halves: the distance of the ends may be more than a number holds.
    const share = (value, low, high) => (value / 2 - low / 2) / (high / 2 - low / 2);
    const toX = (x) => left + share(x, xLow, xHigh) * width;
    const toY = (y) => top + height * (1 - (panel.log ? share(Math.log(y), Math.log(yLow), Math.log(yHigh))
      : share(y, yLow, yHigh)));
    const nearest = (line, x) => {
      let best = -1;
      for (let at = 0; at < line.xs.length; at++)
        if ((!panel.log || line.ys[at] > 0) && (best < 0 || Math.abs(line.xs[at] - x) < Math.abs(line.xs[best] - x)))
          best = at;
      return best;
    };
    const hide = () => { layer.replaceChildren(); tip.hidden = true; };
    svg.addEventListener('pointerleave', hide);
    svg.addEventListener('pointermove', (event) => {
      const place = new DOMPoint(event.clientX, event.clientY).matrixTransform(svg.getScreenCTM().inverse());
      const part = (place.x - left) / width;
      const wanted = xLow * (1 - part) + xHigh * part;
      let x = null;
      for (const line of panel.lines) {
        const at = nearest(line, wanted);
        if (at >= 0 && (x === null || Math.abs(line.xs[at] - wanted) < Math.abs(x - wanted))) x = line.xs[at];
      }
      if (x === null) return hide();
      layer.replaceChildren(shape('line', {x1: toX(x), x2: toX(x), y1: top, y2: top + height}));
      const rows = [`${panel.key} ${number(x)}`];
      panel.lines.forEach((line) => {
        const at = nearest(line, x);
        if (at < 0) return;
        const here = line.xs[at] === x ? '' : ` (at ${number(line.xs[at])})`;
        rows.push(`${line.key}  ${number(line.ys[at])}${here}`);
        const y = toY(line.ys[at]);
        if (y >= top - 2 && y <= top + height + 2)
          layer.append(shape('circle', {class: `p${line.pen}`, cx: toX(line.xs[at]), cy: y, r: 4}));
      });
      tip.replaceChildren(...rows.map((row) => {
        const element = document.createElement('div');
        element.textContent = row;
        return element;
      }));
      tip.hidden = false;
      const fits = event.clientX + tip.offsetWidth + 24 < document.documentElement.clientWidth;
      tip.style.left = `${fits ? event.clientX + 16 : Math.max(4, event.clientX - tip.offsetWidth - 16)}px`;
      tip.style.top = `${Math.max(4, event.clientY - tip.offsetHeight - 12)}px`;
    });
  }
})();
)js";

JSONValue numbers(const std::vector<double>& values)
{
    return JSONValue::Array(values.begin(), values.end());
}

/// What the script needs of a panel.
JSONValue dataOf(const Chart& chart)
{
    JSONValue::Array lines;
    for (const Chart::Line& line : chart.lines)
        if (!line.isFaint)
            lines.push_back(JSONValue::object(
                {{"key", line.key},
                 {"pen", static_cast<std::int64_t>(line.pen % Chart::pens)},
                 {"xs", numbers(line.series->xs)},
                 {"ys", numbers(line.series->ys)}}));
    const SVGCharts::Box plot = SVGCharts::Frame::of(chart).plot;
    const Axis::Range& x = chart.x.range();
    const Axis::Range& y = chart.y.range();
    return JSONValue::object({
        {"key", chart.xKey},
        {"x", JSONValue::array({x.low, x.high})},
        {"y", JSONValue::array({y.low, y.high})},
        {"log", chart.y.isLogarithmic()},
        {"plot", JSONValue::array({plot.left, plot.top, plot.width, plot.height})},
        {"lines", std::move(lines)},
    });
}

/// The drawing in words, for who can't see it.
std::string inWords(const Chart& chart)
{
    if (chart.isEmpty)
        return fmt::format("{}: {}", chart.title, chart.nothing);
    std::string words = fmt::format("{} over {}", chart.title, chart.xKey);
    for (const Chart::Line& line : chart.lines)
        if (const std::vector<double>& ys = line.series->ys; !ys.empty() && !line.isFaint)
            words += fmt::format(
                "; {}: first {}, last {}, lowest {}, highest {}", line.key, shortNumber(ys.front()),
                shortNumber(ys.back()), shortNumber(*std::ranges::min_element(ys)),
                shortNumber(*std::ranges::max_element(ys)));
    return words;
}

std::string figureOf(const Chart& chart, std::size_t number)
{
    std::string legend;
    for (const Chart::Line& line : chart.lines) {
        if (line.isFaint)
            continue;
        legend += fmt::format(
            R"(<li><svg viewBox="0 0 18 4" aria-hidden="true"><rect class="p{}" width="18" height="4" rx="2"/></svg>)"
            "{}{}</li>",
            line.pen % Chart::pens, escaped(line.key),
            line.series->ys.empty() ? "" : fmt::format(" <b>{}</b>", shortNumber(line.series->ys.back())));
    }
    const SVGCharts::Frame frame = SVGCharts::Frame::of(chart);
    const std::string remark = chart.remark();
    return fmt::format(
        "<figure{}{}>\n<figcaption>{}</figcaption>\n<ul class=\"legend\">{}</ul>\n"
        "<div class=\"plot\"><svg viewBox=\"0 0 {:.0f} {:.0f}\" role=\"img\" aria-label=\"{}\">{}</svg></div>\n"
        "{}</figure>\n",
        chart.isWide ? " class=\"wide\"" : "", chart.isEmpty ? "" : fmt::format(" data-panel=\"{}\"", number),
        escaped(chart.title), legend, frame.width, frame.height, escaped(inWords(chart)),
        SVGCharts::panel(chart, number), remark.empty() ? "" : "<p class=\"remark\">" + escaped(remark) + "</p>\n");
}

std::string listOf(std::string_view name, const std::vector<std::pair<std::string, std::string>>& entries)
{
    std::string list;
    for (const auto& [term, value] : entries)
        list += fmt::format("<div><dt>{}</dt><dd>{}</dd></div>\n", escaped(term), escaped(value));
    return list.empty() ? list : fmt::format("<dl class=\"{}\">\n{}</dl>\n", name, list);
}

} // namespace

std::string page(const TelemetryCharts& charts, const Heading& heading)
{
    std::vector<std::pair<std::string, std::string>> stats;
    for (const TelemetryCharts::Stat& stat : charts.stats)
        stats.emplace_back(stat.title, stat.value ? shortNumber(*stat.value) : "–");
    std::string figures;
    JSONValue::Array data;
    for (const Chart& chart : Chart::all(charts)) {
        figures += figureOf(chart, data.size());
        data.push_back(dataOf(chart));
    }
    const std::string notice = charts.isEmpty() ? "The run has written no telemetry." : droppedWords(charts.dropped);
    std::string body = fmt::format(
        "<header>\n<h1>{}</h1>\n<p class=\"subtitle\">{}</p>\n{}</header>\n", escaped(heading.title),
        escaped(heading.subtitle), listOf("facts", heading.facts));
    body += listOf("stats", stats);
    if (!notice.empty())
        body += fmt::format("<p class=\"notice\">{}</p>\n", escaped(notice));
    body += fmt::format("<div class=\"panels\">\n{}</div>\n", figures);
    const std::string reload =
        heading.reloadSeconds ? fmt::format("<meta http-equiv=\"refresh\" content=\"{}\">\n", *heading.reloadSeconds)
                              : "";
    std::string text = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                       "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                       "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
                       "style-src 'unsafe-inline'; script-src 'unsafe-inline'\">\n";
    text += reload;
    text += fmt::format("<title>{} – {}</title>\n<style>", escaped(heading.title), escaped(heading.subtitle));
    text.append(SVGCharts::style()).append(pageStyle).append("</style>\n</head>\n<body>\n<main>\n").append(body);
    text += "</main>\n<div id=\"tip\" hidden></div>\n<script type=\"application/json\" id=\"data\">";
    text += text::replacingAll(JSONValue(std::move(data)).text(), "<", "\\u003c"); // "</script>" would end it
    return text.append("</script>\n<script>").append(script).append("</script>\n</body>\n</html>\n");
}

} // namespace veltry::HTMLCharts
