#include "ACP/ACPClient/Handshake.h"
#include "ACP/ACPClient/Permissions.h"
#include "ACP/ACPClient/Prompts.h"
#include "ACP/ACPClient/SessionUpdates.h"
#include "ACP/ACPClient/Sessions.h"
#include "ACP/ACPClient/TextFiles.h"
#include "Property.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

using namespace veltry;
using veltry::fuzz::require;

namespace {

template <typename Record>
std::optional<Record> read(const JSONValue& value)
{
    try {
        return decoded<Record>(value);
    } catch (const DecodingFailure& failure) {
        require(!failure.description().empty(), "a failure says what it met");
        return std::nullopt;
    }
}

/// What was read and written again reads as the same record.
template <typename Record>
void readAndWrite(const JSONValue& value)
{
    const std::optional<Record> record = read<Record>(value);
    if (!record)
        return;
    const JSONValue written = encoded(*record);
    require(encoded(decoded<Record>(written)) == written, "a written record reads back equal");
}

template <typename... Records>
void readAndWriteEach(const JSONValue& value)
{
    (readAndWrite<Records>(value), ...);
}

void askRecords(const JSONValue& value)
{
    if (const auto agent = read<InitializeResult>(value))
        require(!agent->steers() || agent->meta, "who says nothing of steering doesn't steer");
    if (const auto info = read<SessionInfo>(value))
        require(!info->updated() || info->updatedAt, "a moment has its text");
    if (const auto option = read<ConfigOption>(value))
        if (const auto choice = option->currentChoice())
            require(option->choosing(choice->value).currentChoice() == choice, "the chosen choice is the current one");
    if (const auto update = read<SessionUpdate>(value))
        if (const auto* unknown = std::get_if<SessionUpdate::Unknown>(&update->value))
            require(unknown->raw == value, "an unknown update is kept whole");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::optional<JSONValue> value = JSONValue::parseIfValid(bytes);
    if (!value)
        return 0;
    readAndWriteEach<
        InitializeParams, InitializeResult, AuthenticateParams, NewSessionParams, ResumeSessionParams,
        ListSessionsParams, ListSessionsResult, SetConfigOptionParams, PromptParams, PromptResult, SteerParams,
        CancelParams, RequestPermissionParams, RequestPermissionResult, ReadTextFileParams, ReadTextFileResult,
        WriteTextFileParams, SessionNotification, SessionUpdate, LenientConfigOptions>(*value);
    (void)read<NewSessionResult>(*value);
    (void)read<ResumeSessionResult>(*value);
    (void)read<SetConfigOptionResult>(*value);
    (void)read<SteerResult>(*value);
    askRecords(*value);
    return 0;
}
