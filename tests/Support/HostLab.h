#pragma once

#include "Support/TestLab.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace veltry::test {

/// A project that `veltry` is called for, in the project's folder and with an application-support folder of its own.
class HostLab : public TestLab {
public:
    using TestLab::TestLab;

    /// Without a terminal, in UTF-8.
    [[nodiscard]] ChildProcess::Output veltry(std::vector<std::string> arguments) const
    {
        return runProgram(hostProgram(), arguments, environment(), repository.path());
    }

    /// What it writes for eyes, with each row of blanks as one.
    [[nodiscard]] std::string words(std::vector<std::string> arguments) const
    {
        std::string text = veltry(std::move(arguments)).output;
        text.erase(
            std::unique(text.begin(), text.end(), [](char a, char b) { return a == ' ' && b == ' '; }), text.end());
        return text;
    }

    [[nodiscard]] JSONValue json(std::vector<std::string> arguments) const
    {
        arguments.emplace_back("--json");
        const ChildProcess::Output output = veltry(std::move(arguments));
        if (output.exitNumber != 0)
            throw std::runtime_error(output.error);
        return JSONValue::parse(output.output);
    }

    [[nodiscard]] ChildProcess::Environment environment() const
    {
        return {
            {"XDG_DATA_HOME", (*this / "data").string()},
            {"VELTRY_DATABASE_PATH", database().string()},
            {"LC_ALL", "C.UTF-8"},
        };
    }
};

/// The same with a baseline, a node below it, and one below that, whose runs have ended.
class HostHistory : public HostLab {
public:
    Experiment baseline = TestLab::baseline("true");
    Experiment node = child(baseline, "Warm-up \033[2J");
    Experiment leaf = child(node, "Leaf");
    Run first = answered(baseline, R"({"loss": 1.5, "name": "a"})");
    Run second = insertFinished(node, Run::Status::failed, 3);
    Run third = answered(node, R"({"loss": 1.25, "name": "b, \"c\""})");
    Run fourth = answered(leaf, R"({"loss": 1, "eval": {"extra": 2}})");

    Run answered(const Experiment& of, const std::string& result) const
    {
        return insertFinished(of, Run::Status::succeeded, 0, result);
    }
};

} // namespace veltry::test
