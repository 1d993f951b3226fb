#pragma once

#include "Base/Date.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

namespace veltry {

/// Which Python a run's login shell finds. Only that shell can tell, and a profile may take seconds: so `veltry` asks
/// it when it attaches an agent and keeps the answer, and the server reads it without starting anything.
struct LoginPython {
    std::filesystem::path shell;                  ///< the shell that was asked
    std::optional<std::filesystem::path> program; ///< what `python3` is there; none if it isn't found
    std::string version{};                        ///< "3.11.2"; empty where the program didn't tell
    Date asked{};

    friend bool operator==(const LoginPython&, const LoginPython&) = default;

    /// Where the answer is kept: beside the settings.
    [[nodiscard]] static std::filesystem::path file(const std::filesystem::path& settings);

    /// What write() left; nothing where that isn't there or can't be understood.
    [[nodiscard]] static std::optional<LoginPython> read(const std::filesystem::path& file);
    /// Throws SystemError.
    void write(const std::filesystem::path& file) const;

    /// Asks `shell` as a run starts it, in this process's environment. Blocks for as long as the profile takes, at most
    /// some seconds; nothing if it takes longer or the shell can't be started.
    [[nodiscard]] static std::optional<LoginPython> ask(const std::filesystem::path& shell);

    /// What `file` keeps of that shell if it is younger than `age`; else asks, and keeps the answer there. Where the
    /// shell doesn't answer, what was kept before counts; a file that can't be written is no failure.
    [[nodiscard]] static std::optional<LoginPython> kept(
        const std::filesystem::path& file, const std::filesystem::path& shell, std::chrono::seconds age);
};

} // namespace veltry
