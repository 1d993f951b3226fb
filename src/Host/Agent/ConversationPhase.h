#pragma once

#include <cstdint>

namespace veltry {

/// Where a conversation with an agent stands, and what comes of each thing that may happen then.
class ConversationPhase {
public:
    enum class Phase : std::uint8_t {
        starting,   ///< the login shell is asked for its environment, and the agent starts
        joining,    ///< a session is opened; what the agent tells of it is new
        rejoining,  ///< a session is opened whose past the transcript holds already
        idle,       ///< the person is to type a prompt
        turn,       ///< the agent works
        cancelling, ///< the agent was asked to stop working
        ending,     ///< nothing more is begun, and the agent is asked to end
    };

    enum class Event : std::uint8_t {
        joins,       ///< a session is opened from its beginning
        rejoins,     ///< one is opened that the transcript knows
        begins,      ///< the session is open
        prompted,    ///< a turn begins
        turnEnds,    ///< in whatever way
        interrupted, ///< Ctrl-C
        stopped,     ///< a hang-up, a request to end, or nobody reads any more
        over,        ///< there is nothing more to do
    };

    /// What the event calls for.
    enum class Action : std::uint8_t {
        none,
        cancelTurn, ///< ask the agent to stop, and wait for that
        breakOff,   ///< end the conversation now
        hurry,      ///< and wait no longer for the agent's own end
    };

    /// To whom a typed line goes that no question waits for.
    enum class Typed : std::uint8_t {
        prompt, ///< it is the next prompt
        steer,  ///< the working agent is told
        wait,   ///< it is the next prompt, which has to wait
        drop,
    };

    Action on(Event event);

    [[nodiscard]] Phase phase() const { return phase_; }
    [[nodiscard]] bool isInTurn() const { return phase_ == Phase::turn || phase_ == Phase::cancelling; }
    /// Whether what the agent tells is shown and goes into the transcript.
    [[nodiscard]] bool takesUpdates() const;
    [[nodiscard]] Typed typed() const;

private:
    Phase phase_ = Phase::starting;
};

} // namespace veltry
