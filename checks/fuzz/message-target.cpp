// A message of each kind, as a peer may send it.
#include "budget.h"
#include "message-kinds.h"
#include "support/wire.h"
#include "target.h"

#include <genrpc/json.h>
#include <host/marshaller.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <stdexcept>

namespace fuzz {
namespace {

// What the marshaller sends for a payload that arrived, or nothing when there is a string with a length and no block.
std::string sentOn(const vdl::EndianTable& table, const void* body, bool otherOrder) {
    try {
        const std::string wire = support::marshalled(table, body);
        return otherOrder ? support::reversed(table, wire) : wire;
    } catch (const std::invalid_argument&) {
        return {};
    }
}

// The first byte tells the byte order, the rest is the message.
template <class Message> void decode(Input input) {
    if (input.empty()) return;
    const bool swap = (input[0] & 1) != 0;
    const std::string message = textOf(input.subspan(1));
    const vdl::EndianTable& table = *Message::table();
    const host::Plan& plan = host::planOf(table);
    const bool bigEndian = swap == (std::endian::native == std::endian::little);
    const model::Outcome expected = model::read(table, checks::flags(), message, bigEndian);

    const support::FlatBlock block(static_cast<char*>(vdlFlatAlloc(message.size())), vdlFlatFree);
    std::memcpy(block.get(), message.data(), message.size());
    std::string refusal;
    {
        Measure measure;
        const char* problem = host::unmarshal(plan, block.get(), message.size(), swap);
        measure.check("unmarshalling", message.size(), 0, 16);
        const Pause pause;
        if (problem) refusal = problem;
    }
    expect(refusal == expected.refusal, "refused with \"" + refusal + "\" for \"" + expected.refusal + '"');
    if (!refusal.empty()) return;

    Measure measure;
    const auto arguments = Message::Body::read(block.get());
    measure.check("reading", message.size(), 0, 64);
    const Pause pause;
    expect(checks::valueOf(arguments) == expected.value, "the arguments have the message's value");
    const auto text =
        std::apply([](const auto&... one) { return genrpc::argumentsToJson<Message>(one...); }, arguments);
    expect(!genrpc::textOf(text).empty(), "the arguments can be printed");

    const auto isUnset = [](const model::Pointer& pointer) { return pointer.count != 0 && pointer.offset == 0; };
    if (std::none_of(expected.pointers.begin(), expected.pointers.end(), isUnset))
        expect(sentOn(table, block.get(), swap) == message, "what arrived is sent on as it was");
    else
        expect(sentOn(table, block.get(), swap).empty(), "a string with a length and no block is not sent");

    const std::string wire = support::wireOf<Message>(arguments);
    expect(wire.size() >= message.size(), "only unset strings are written at greater length");
    const model::Outcome again = model::read(table, checks::flags(), wire, std::endian::native == std::endian::big);
    expect(again.value == expected.value, "written anew, the message has the same value");
    expect(support::roundTripped<Message>(arguments, !swap) == arguments, "the arguments survive the other byte order");
}

} // namespace

std::vector<Target> messageTargets() {
#define FUZZ_TARGET(service, direction, Name, ...) {#service "-" #Name, decode<service::messages::Name>},
    return {TVSERVICE_MESSAGES(FUZZ_TARGET) MMSERVICE_MESSAGES(FUZZ_TARGET)};
#undef FUZZ_TARGET
}

} // namespace fuzz
