#include "Host/Agent/ConversationPhase.h"

#include <array>
#include <utility>

namespace veltry {

namespace {

using Phase = ConversationPhase::Phase;
using Action = ConversationPhase::Action;
using Typed = ConversationPhase::Typed;

struct Step {
    Phase next;
    Action action = Action::none;
};

constexpr Step breakOff{.next = Phase::ending, .action = Action::breakOff};
constexpr Step end{.next = Phase::ending};

constexpr std::size_t phaseCount = 7;
constexpr std::size_t eventCount = 8;

struct Row {
    std::array<Step, eventCount> steps; // in the order of Event
    bool takesUpdates;
    Typed typed;
};

// In the order of Phase. An event that can't happen in a phase changes nothing.
constexpr std::array<Row, phaseCount> table = [] {
    using enum Phase;
    return std::array<Row, phaseCount>{{
        // joins, rejoins, begins, prompted, turnEnds, interrupted, stopped, over
        {{{{joining}, {rejoining}, {starting}, {starting}, {starting}, breakOff, breakOff, end}}, true, Typed::prompt},
        {{{{joining}, {rejoining}, {idle}, {joining}, {joining}, breakOff, breakOff, end}}, true, Typed::prompt},
        // What is told on the way into a known session again is in the transcript already, so it is left out.
        {{{{joining}, {rejoining}, {idle}, {rejoining}, {rejoining}, breakOff, breakOff, end}}, false, Typed::prompt},
        {{{{idle}, {idle}, {idle}, {turn}, {idle}, breakOff, breakOff, end}}, true, Typed::prompt},
        {{{{turn}, {turn}, {turn}, {turn}, {idle}, {cancelling, Action::cancelTurn}, breakOff, end}},
         true,
         Typed::steer},
        {{{{cancelling}, {cancelling}, {cancelling}, {cancelling}, {idle}, breakOff, breakOff, end}},
         true,
         Typed::wait},
        {{{{ending},
           {ending},
           {ending},
           {ending},
           {ending},
           {ending, Action::hurry},
           {ending, Action::hurry},
           {ending}}},
         true, // an agent's last words
         Typed::drop},
    }};
}();

const Row& rowOf(Phase phase)
{
    return table.at(std::to_underlying(phase));
}

} // namespace

ConversationPhase::Action ConversationPhase::on(Event event)
{
    const Step& step = rowOf(phase_).steps.at(std::to_underlying(event));
    phase_ = step.next;
    return step.action;
}

bool ConversationPhase::takesUpdates() const
{
    return rowOf(phase_).takesUpdates;
}

ConversationPhase::Typed ConversationPhase::typed() const
{
    return rowOf(phase_).typed;
}

} // namespace veltry
