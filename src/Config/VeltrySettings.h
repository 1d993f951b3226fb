#pragma once

#include "Base/Error.h"
#include "Base/Words.h"
#include "Config/TOML.h"

#include <compare>
#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace veltry {

/// A person's preferences: the record, and the reading and writing of `settings.toml`.
///
/// The file belongs to the person, who edits it by hand. So reading takes what it can and names what it passed over,
/// and writing one setting leaves all the rest as it stands. A new setting needs a field here, its Key, and a row in
/// the table at the top of VeltrySettings.cpp.
struct VeltrySettings {
    enum class SendKey { enter, commandEnter };
    enum class Theme { system, light, dark };
    enum class TranscriptSize { small, standard, large };
    enum class Tree { graph, indented };

    SendKey send = SendKey::enter;
    bool notifyTurns = true;
    bool notifyRuns = true;
    std::string sound = "Glass";
    bool stayAwake = false;
    Theme theme = Theme::system;
    TranscriptSize transcriptSize = TranscriptSize::standard;
    std::string codeFont = "system";
    std::string defaultAgent = "Claude Code";
    bool startInAuto = true;
    bool passAPIKeys = true;
    std::int64_t maxRuns = 2; ///< runs at once on this computer, 0 to 9999; 0 is no limit
    Tree tree = Tree::graph;
    bool logAgentTraffic = false;

    friend bool operator==(const VeltrySettings&, const VeltrySettings&) = default;

    /// Where a setting stands in the file. The texts are not owned: those of the constants live for ever.
    struct Key {
        std::string_view table;
        std::string_view name;

        /// "<table>.<name>".
        [[nodiscard]] std::string text() const;
        friend auto operator<=>(const Key&, const Key&) = default;

        static const Key send, notifyTurns, notifyRuns, sound, stayAwake, theme, transcriptSize, codeFont, defaultAgent,
            startInAuto, passAPIKeys, maxRuns, tree, logAgentTraffic;
    };

    /// What is written for a setting; that of an enumeration is its raw text.
    using Value = std::variant<std::string, bool, std::int64_t>;

    struct Reading;
    struct Refused;

    /// All settings in the order of the file.
    [[nodiscard]] static std::vector<Key> keys();
    /// The comment that explains the setting in a file.
    [[nodiscard]] static std::string_view explanation(Key key);
    [[nodiscard]] Value value(Key key) const;
    /// What a person's word for the setting stands for, held against the rules of read(). The error is the rule that it
    /// breaks, to be read after the key: "must be true or false".
    [[nodiscard]] static std::expected<Value, std::string> valueFromWord(Key key, std::string_view word);

    /// The environment's VELTRY_SETTINGS_PATH if it isn't empty, else "Harrowick Veltry/settings.toml" in the
    /// application-support folder. Looks at no file.
    [[nodiscard]] static std::filesystem::path defaultPath();

    /// The settings of a file's text. What is missing or wrong keeps its default, and a warning names what is wrong;
    /// they come sorted by table and key. Throws TOML::Failure if the text as a whole can't be read.
    [[nodiscard]] static Reading read(std::string_view text);

    /// The settings of a file, without warnings. A file that isn't there, isn't UTF-8 or can't be read as a whole gives
    /// the defaults. Never fails.
    [[nodiscard]] static VeltrySettings load(const std::filesystem::path& file);

    /// The text of a whole file with these settings, each below a comment that explains it.
    [[nodiscard]] static std::string templateText(const VeltrySettings& settings);

    /// The file's text with that setting changed, in its line, or in a new one under its table, or else in a new table
    /// at the end. Everything else stays byte for byte, also in a text that can't be read as TOML. `value` is not
    /// checked, and a line feed in it doesn't read back. Touches no file.
    [[nodiscard]] static std::string setting(Key key, const Value& value, std::string_view text);

    /// The same for a text that can be read, which then can be read still and has the setting. Throws Refused where
    /// something stands in the way: a `[[name]]` list, or a value that goes over several lines. For a text that can't
    /// be read as it is, throws the TOML::Failure of read().
    [[nodiscard]] static std::string settingInReadable(Key key, const Value& value, std::string_view text);
};

struct VeltrySettings::Reading {
    VeltrySettings settings;
    std::vector<std::string> warnings; ///< whole sentences without a full stop, such as "x is not a setting"
};

/// A setting can't be written without harm to the file; the person has to mend a line of it first.
struct VeltrySettings::Refused : Error {
    Refused(std::size_t number, std::string content) : line(number), text(std::move(content)) {}
    [[nodiscard]] std::string description() const override;
    std::size_t line; ///< in the text as it was; the first is 1
    std::string text; ///< the line's own
};

// As the file has them.

template <>
inline constexpr auto wordsOf<VeltrySettings::SendKey> = std::to_array<Word<VeltrySettings::SendKey>>({
    {VeltrySettings::SendKey::enter, "enter"},
    {VeltrySettings::SendKey::commandEnter, "command-enter"},
});
template <>
inline constexpr auto wordsOf<VeltrySettings::Theme> = std::to_array<Word<VeltrySettings::Theme>>({
    {VeltrySettings::Theme::system, "system"},
    {VeltrySettings::Theme::light, "light"},
    {VeltrySettings::Theme::dark, "dark"},
});
template <>
inline constexpr auto wordsOf<VeltrySettings::TranscriptSize> = std::to_array<Word<VeltrySettings::TranscriptSize>>({
    {VeltrySettings::TranscriptSize::small, "small"},
    {VeltrySettings::TranscriptSize::standard, "default"},
    {VeltrySettings::TranscriptSize::large, "large"},
});
template <>
inline constexpr auto wordsOf<VeltrySettings::Tree> = std::to_array<Word<VeltrySettings::Tree>>({
    {VeltrySettings::Tree::graph, "graph"},
    {VeltrySettings::Tree::indented, "indented"},
});

inline constexpr VeltrySettings::Key VeltrySettings::Key::send{"composer", "send"};
inline constexpr VeltrySettings::Key VeltrySettings::Key::notifyTurns{"notifications", "turns"};
inline constexpr VeltrySettings::Key VeltrySettings::Key::notifyRuns{"notifications", "runs"};
inline constexpr VeltrySettings::Key VeltrySettings::Key::sound{"notifications", "sound"};
inline constexpr VeltrySettings::Key VeltrySettings::Key::stayAwake{"power", "stay_awake"};
inline constexpr VeltrySettings::Key VeltrySettings::Key::theme{"appearance", "theme"};
inline constexpr VeltrySettings::Key VeltrySettings::Key::transcriptSize{"appearance", "transcript_size"};
inline constexpr VeltrySettings::Key VeltrySettings::Key::codeFont{"appearance", "code_font"};
inline constexpr VeltrySettings::Key VeltrySettings::Key::defaultAgent{"agents", "default"};
inline constexpr VeltrySettings::Key VeltrySettings::Key::startInAuto{"agents", "start_in_auto"};
inline constexpr VeltrySettings::Key VeltrySettings::Key::passAPIKeys{"agents", "pass_api_keys"};
inline constexpr VeltrySettings::Key VeltrySettings::Key::maxRuns{"experiments", "max_runs"};
inline constexpr VeltrySettings::Key VeltrySettings::Key::tree{"experiments", "tree"};
inline constexpr VeltrySettings::Key VeltrySettings::Key::logAgentTraffic{"advanced", "log_agent_traffic"};

} // namespace veltry

template <>
struct std::hash<veltry::VeltrySettings::Key> {
    std::size_t operator()(const veltry::VeltrySettings::Key& key) const noexcept;
};
