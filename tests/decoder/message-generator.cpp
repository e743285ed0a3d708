// Prints random messages for the decoder: message-generator COUNT prints COUNT lines, each a JSON object with service,
// message, order, bytes in hex and content. The same count gives the same lines on all machines with the same byte
// order.
#include "support/tv-messages.h"
#include "support/wire.h"

#include <genrpc/json.h>

#include <bit>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

class Random {
public:
    std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(engine_() % bound); }
    bool once(std::uint32_t in) { return below(in) == 0; }

    void fill(bool& value) { value = once(2); }
    void fill(std::string& text) {
        // Strings must be UTF-8 here, because JSON has no other strings.
        static const std::vector<std::string> pieces{std::string(1, '\0'),
                                                     "\xC3\xBC",
                                                     "\xE4\xB8\x96",
                                                     "\xF0\x9F\x93\xBA",
                                                     "\"",
                                                     "\\",
                                                     "\n",
                                                     "a",
                                                     "bc",
                                                     "rec://"};
        text.clear();
        for (std::uint32_t count = once(50) ? below(300) : below(8); count > 0; --count)
            text += pieces[below(static_cast<std::uint32_t>(pieces.size()))];
    }
    template <class T> void fill(std::vector<T>& list) {
        list.resize(once(50) ? below(30) : below(4));
        for (auto& element : list) fill(element);
    }
    template <class T> void fill(T& value) {
        if constexpr (std::is_enum_v<T>) {
            std::underlying_type_t<T> number{};
            fill(number);
            value = static_cast<T>(number);
        } else if constexpr (std::is_arithmetic_v<T>) {
            value = once(8)   ? std::numeric_limits<T>::min()
                    : once(8) ? std::numeric_limits<T>::max()
                              : static_cast<T>(engine_());
        } else {
            std::apply([&](const auto&... field) { (fill(value.*field.plain), ...); }, T::Flat::fields());
        }
    }

private:
    std::mt19937_64 engine_{20};
};

constexpr bool isLittle = std::endian::native == std::endian::little;

template <class Message> void print(const char* service, Random& random) {
    typename Message::Body::Arguments arguments;
    std::apply([&](auto&... argument) { (random.fill(argument), ...); }, arguments);
    std::string wire = support::wireOf<Message>(arguments);
    const bool swapped = random.once(2);
    if (swapped) wire = support::reversed(*Message::table(), std::move(wire));

    std::string hex;
    for (const char byte : wire) {
        constexpr const char* digits = "0123456789abcdef";
        hex += digits[static_cast<unsigned char>(byte) >> 4];
        hex += digits[byte & 15];
    }
    const auto content =
        std::apply([](const auto&... argument) { return genrpc::argumentsToJson<Message>(argument...); }, arguments);
    std::cout << R"({"service":")" << service << R"(","message":")" << Message::name << R"(","order":")"
              << (isLittle != swapped ? "little" : "big") << R"(","bytes":")" << hex << R"(","content":)"
              << content.dump() << "}\n";
}

using Print = void (*)(const char*, Random&);
struct Printer {
    const char* service;
    Print print;
};
#define PRINTER(service, direction, Name, ...) {#service, print<service::messages::Name>},
constexpr Printer printers[] = {TVSERVICE_MESSAGES(PRINTER) MMSERVICE_MESSAGES(PRINTER)};

} // namespace

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    const unsigned long count = argc == 2 ? std::strtoul(argv[1], nullptr, 10) : 0;
    if (count == 0) {
        std::cerr << "usage: message-generator COUNT\n";
        return 2;
    }
    Random random;
    for (unsigned long i = 0; i < count; ++i) {
        const Printer& printer = printers[i % std::size(printers)];
        printer.print(printer.service, random);
    }
    return std::cout.flush() ? 0 : 1;
}
