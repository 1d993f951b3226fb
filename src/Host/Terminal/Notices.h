#pragma once

#include "Config/VeltrySettings.h"
#include "Host/Terminal/Terminal.h"
#include "Platform/ProcessID.h"

#include <string_view>
#include <vector>

namespace veltry {

/// Calls a person who looks elsewhere: by a notice on the desktop, where the program `notify-send` is there, and where
/// an agent waits by the terminal's bell, unless `notifications.sound` is "none". Used by one thread.
class Notices {
public:
    /// The bell goes to `terminal`, if it is one.
    explicit Notices(const Terminal& terminal) : terminal_(terminal) {}
    Notices(const Notices&) = delete;
    Notices& operator=(const Notices&) = delete;
    ~Notices();

    /// What it is about, and so which setting switches its desktop notice on.
    enum class Subject { turn, run };

    /// Doesn't wait for the desktop, and never fails: a notice that can't be shown is lost.
    void tell(Subject subject, const VeltrySettings& settings, std::string_view title, std::string_view body);

private:
    Terminal terminal_;
    std::vector<ProcessID> senders_; // not reaped yet
};

} // namespace veltry
