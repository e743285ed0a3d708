// Arguments of any message, made of the input: what is written is what is read, and nothing but that gets out.
#include "budget.h"
#include "message-kinds.h"
#include "support/wire.h"
#include "target.h"

#include <host/marshaller.h>

#include <bit>
#include <cstring>
#include <optional>

namespace fuzz {
namespace {

void fill(Source& source, bool& flag) { flag = (source.byte() & 1) != 0; }
void fill(Source& source, std::string& text) {
    // Up to 15 bytes a string keeps inside; one length in 16 is a long one.
    const std::uint8_t length = source.byte();
    text = textOf(source.upTo(length < 240 ? length % 32U : (length - 239U) * 64U));
}
template <class T> void fill(Source& source, std::vector<T>& list);
template <class T> void fill(Source& source, T& value) {
    if constexpr (std::is_enum_v<T> || std::is_arithmetic_v<T>)
        value = static_cast<T>(source.number(sizeof(T)));
    else
        std::apply([&](const auto&... field) { (fill(source, value.*field.plain), ...); }, T::Flat::fields());
}
template <class T> void fill(Source& source, std::vector<T>& list) {
    const std::uint8_t count = source.byte();
    list.resize(count < 240 ? count % 4U : count - 236U);
    for (T& element : list) fill(source, element);
}

// What is written when the memory for it held these bytes before. What memory holds must never get out: it may be
// another message's.
template <class Message>
std::string wireOver(char formerBytes, std::size_t room, const typename Message::Body::Arguments& arguments) {
    void* former = vdlFlatAlloc(room);
    std::memset(former, formerBytes, room);
    vdlFlatFree(former); // the next block of its size is this one
    const auto region = genrpc::FlatRegion::create(room);
    const char* body = std::apply([&](const auto&... one) { return Message::Body::build(*region, one...); }, arguments);
    host::Bytes out;
    out.reserve(room);
    std::memset(out.data(), formerBytes, room);
    host::marshal(host::planOf(*Message::table()), body, out, room);
    return std::string(out.data(), out.size());
}

// What is written, size bytes, with memory that grows as it is needed.
template <class Message> std::string grownWire(const typename Message::Body::Arguments& arguments, std::size_t size) {
    const host::Plan& plan = host::planOf(*Message::table());
    std::optional<support::FlatBody<Message>> body;
    {
        Measure measure;
        body.emplace(arguments);
        measure.check("building what becomes a message", size, 0, 64);
    }
    host::Bytes out;
    Measure measure;
    host::marshal(plan, body->get(), out, size);
    measure.check("marshalling what becomes a message", size, 0, 16);
    const Pause pause;
    return std::string(out.data(), out.size());
}

template <class Message> void encodeOne(Source source) {
    const std::size_t room = 64 * 1024 + 16 * source.rest().size();
    typename Message::Body::Arguments arguments;
    std::apply([&](auto&... one) { (fill(source, one), ...); }, arguments);
    const std::string wire = wireOver<Message>('\0', room, arguments);
    for (const char former : {'\xAA', '\xFF'})
        expect(wireOver<Message>(former, room, arguments) == wire, "what memory held before does not matter");
    expect(grownWire<Message>(arguments, wire.size()) == wire, "a region that grows makes the same message");

    const bool bigEndian = std::endian::native == std::endian::big;
    const std::string other = support::reversed(*Message::table(), wire);
    for (const bool reversed : {false, true}) {
        const auto told =
            model::read(*Message::table(), checks::flags(), reversed ? other : wire, reversed != bigEndian);
        expect(told.verdict == model::Verdict::Accepted, "what is written is right: " + told.refusal);
        expect(told.value == checks::valueOf(arguments), "what is written are the arguments");
        const auto body = support::received(*Message::table(), reversed ? other : wire, reversed);
        expect(Message::Body::read(body.get()) == arguments, "what is read is what was written");
    }
}

} // namespace

// The first byte chooses the kind of message.
void encode(Input input) {
#define FUZZ_ENCODE(service, direction, Name, ...) encodeOne<service::messages::Name>,
    constexpr void (*kinds[])(Source) = {TVSERVICE_MESSAGES(FUZZ_ENCODE) MMSERVICE_MESSAGES(FUZZ_ENCODE)};
#undef FUZZ_ENCODE
    Source source(input);
    const std::size_t kind = source.byte() % std::size(kinds);
    kinds[kind](source);
}

} // namespace fuzz
