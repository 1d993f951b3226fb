#include "Experiments/Telemetry/Telemetry.h"
#include "Experiments/Telemetry/TelemetryCharts.h"
#include "Platform/Files.h"
#include "Programs.h"
#include "Rows.h"

#include <fmt/format.h>

#include <malloc.h>
#include <simdjson.h>

#include <cmath>
#include <random>
#include <stdexcept>

namespace veltry::bench {

namespace {

constexpr int lineCount = 200'000;
constexpr int numbersOfLine = 8;
constexpr double bytesOfReading = sizeof(double) + sizeof(std::int32_t);

/// Lines as a training loop in Python writes them: whole numbers, short ones, and doubles with all their digits.
std::string telemetryLines(int count)
{
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> noise(0, 1);
    std::string lines;
    for (int line = 1; line <= count; ++line) {
        const double progress = static_cast<double>(line) / count;
        fmt::format_to(
            std::back_inserter(lines),
            R"({{"step": {}, "epoch": {}, "lr": {}, "train": {{"loss": {}, "accuracy": {}}}, )"
            R"("eval": {{"loss": {}, "accuracy": {}}}, "tokens_per_second": {:.1f}}})"
            "\n",
            line * 10, line / 1000, 0.0003, 2.5 * std::exp(-3 * progress) + 0.1 * noise(random),
            progress * noise(random), 2.6 * std::exp(-3 * progress) + 0.1 * noise(random), progress * noise(random),
            90'000 + 5'000 * noise(random));
    }
    return lines;
}

std::filesystem::path makeTelemetry(const Workplace& place, const std::string& lines, std::string_view name)
{
    const std::filesystem::path file = place.folder / name;
    Files::writeAll(Files::open(file, Files::forAppending), lines, name);
    return file;
}

Telemetry ingested(const std::filesystem::path& file)
{
    Telemetry telemetry;
    telemetry.read(file, false);
    if (telemetry.pointCount() != lineCount || telemetry.keys().size() != numbersOfLine || !telemetry.dropped().empty())
        throw std::runtime_error("not every line became a point");
    return telemetry;
}

double ingestSeconds(const std::filesystem::path& file)
{
    return secondsOf([&] { static_cast<void>(ingested(file)); });
}

/// The sum of all numbers of a document, and their count.
void walk(simdjson::ondemand::object object, double& sum, int& count)
{
    for (auto field : object) {
        simdjson::ondemand::value value = field.value();
        if (value.type() == simdjson::ondemand::json_type::object) {
            walk(value.get_object(), sum, count);
            continue;
        }
        sum += value.get_double();
        ++count;
    }
}

double walkSeconds(const simdjson::padded_string& bytes)
{
    simdjson::ondemand::parser parser;
    double sum = 0;
    int count = 0;
    const double seconds = secondsOf([&] {
        simdjson::ondemand::document_stream documents = parser.iterate_many(bytes);
        for (auto document : documents)
            walk(document.get_object(), sum, count);
    });
    if (count != lineCount * numbersOfLine || !std::isfinite(sum))
        throw std::runtime_error("the walk missed numbers");
    return seconds;
}

double wcSeconds(const std::filesystem::path& file)
{
    return secondsOf([&] { runProgram(program("/usr/bin/wc", {"-l", file.string()})); });
}

/// What one new line costs a reader that knows the lines before.
double newLineSeconds(const std::filesystem::path& file, const std::string& line)
{
    Telemetry telemetry;
    telemetry.read(file, false);
    const FileDescriptor end = Files::open(file, Files::forAppending);
    std::vector<double> values;
    for (int time = 0; time < 100; ++time) {
        Files::writeAll(end, line, "telemetry");
        values.push_back(secondsOf([&] { telemetry.read(file, false); }));
    }
    return median(values);
}

} // namespace

Measured telemetryWalk(const Workplace& place)
{
    const std::string lines = telemetryLines(lineCount);
    const std::filesystem::path file = makeTelemetry(place, lines, "telemetry.jsonl");
    const simdjson::padded_string bytes(lines);
    return interleaved(15, [&] { return ingestSeconds(file); }, [&] { return walkSeconds(bytes); }, least);
}

Measured telemetryRate(const Workplace& place)
{
    const std::string lines = telemetryLines(lineCount);
    const std::filesystem::path file = makeTelemetry(place, lines, "telemetry.jsonl");
    const double limit = static_cast<double>(lines.size()) / 150e6;
    return interleaved(15, [&] { return ingestSeconds(file); }, [&] { return limit; });
}

Measured telemetryLinesCounted(const Workplace& place)
{
    const std::filesystem::path file = makeTelemetry(place, telemetryLines(lineCount), "telemetry.jsonl");
    return interleaved(15, [&] { return ingestSeconds(file); }, [&] { return wcSeconds(file); });
}

Measured telemetryNewLine(const Workplace& place)
{
    const std::string line = telemetryLines(1);
    const std::filesystem::path large = makeTelemetry(place, telemetryLines(lineCount / 2), "large");
    const std::filesystem::path small = makeTelemetry(place, telemetryLines(10), "small");
    return interleaved(15, [&] { return newLineSeconds(large, line); }, [&] { return newLineSeconds(small, line); });
}

Measured telemetryMemory(const Workplace& place)
{
    const std::filesystem::path file = makeTelemetry(place, telemetryLines(lineCount), "telemetry.jsonl");
    const auto held = [] {
        const struct mallinfo2 info = ::mallinfo2();
        return static_cast<double>(info.uordblks + info.hblkhd);
    };
    const double before = held();
    const Telemetry telemetry = ingested(file);
    return {.ours = held() - before, .limit = lineCount * numbersOfLine * bytesOfReading};
}

Measured telemetryCharts(const Workplace& /*place*/)
{
    constexpr int keyCount = 33; // a step, and as many panels as a layout may have
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> noise(0, 1);
    Telemetry telemetry;
    for (int line = 1; line <= lineCount; ++line) {
        std::string text = fmt::format("{{\"step\":{}", line * 10);
        for (int key = 1; key < keyCount; ++key)
            fmt::format_to(std::back_inserter(text), ",\"key{}\":{:.4f}", key, noise(random));
        telemetry.take(text + "}\n", false);
    }
    const auto ours = [&] {
        return secondsOf([&] {
            const TelemetryCharts charts(telemetry);
            if (charts.series.size() != keyCount - 1 || charts.series.back().total != lineCount)
                throw std::runtime_error("a line is missing");
        });
    };
    return interleaved(15, ours, [] { return 0.05; });
}

} // namespace veltry::bench
