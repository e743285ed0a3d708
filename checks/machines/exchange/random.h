// Random arguments. Half of them are meaningful to the services.
#pragma once

#include <tvservice/core-records.h>

#include <cstdint>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace exchange {

class Random {
public:
    explicit Random(std::uint64_t seed) : engine_(seed) {}

    std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(engine_() % bound); }
    bool once(std::uint32_t in) { return below(in) == 0; }

    template <class... T> void fill(std::tuple<T...>& values) {
        std::apply([&](T&... value) { (fill(value), ...); }, values);
    }
    void fill(bool& value) { value = once(2); }
    void fill(std::string& text) {
        static const char* const known[] = {"",      "dvb://1.1.1", "dvb://1.1.2", "dvb://1.2.3", "dvb://9.9.9",
                                            "null",  "hdmi://1",    "rec://1",     "film://",     "RED",
                                            "GREEN", "BLUE",        "CC",          "cable",       "firmware,maps"};
        static const std::string pieces[] = {
            std::string(1, '\0'), "\xC3\xBC", "\xF0\x9F\x93\xBA", "\"", "\\", "a ", "://"};
        if (once(2)) {
            text = known[below(std::size(known))];
            return;
        }
        text.clear();
        for (std::uint32_t count = below(12); count > 0; --count) text += pieces[below(std::size(pieces))];
    }
    // A URI for each path that a request to play can take.
    void fillUri(std::string& uri) {
        static const char* const uris[] = {tvservice::stopUri,
                                           "dvb://1.1.1",
                                           "dvb://1.2.3",
                                           "dvb://9.9.9",
                                           "hdmi://1",
                                           "file:///etc/passwd",
                                           "fsl2:///etc/p%61sswd",
                                           "file:///nowhere/film.ts",
                                           "file:///etc/PVR+/1.ts",
                                           "http://host/film",
                                           "https://host/film",
                                           "rtp://host:5004",
                                           "miracast://phone",
                                           "external:1",
                                           "youtube:watch",
                                           "youtubev4:watch",
                                           "FILE://localhost/etc/passwd"};
        if (once(8))
            fill(uri);
        else
            uri = uris[below(std::size(uris))];
    }
    // So few values that terminals recur.
    void fill(tvservice::TvServiceTerminal_t& terminal) {
        static const std::int32_t numbers[] = {0, 1, 5, 0x01020304, -2, std::numeric_limits<std::int32_t>::min()};
        terminal = {numbers[below(std::size(numbers))], numbers[below(std::size(numbers))]};
    }
    template <class T> void fill(std::vector<T>& list) {
        list.resize(below(4));
        for (auto& element : list) fill(element);
    }
    template <class T> void fill(T& value) {
        if constexpr (std::is_enum_v<T>) {
            std::underlying_type_t<T> number{};
            fill(number);
            value = static_cast<T>(number);
        } else if constexpr (std::is_arithmetic_v<T>) {
            value = !once(4)  ? static_cast<T>(below(6))
                    : once(4) ? std::numeric_limits<T>::min()
                    : once(4) ? std::numeric_limits<T>::max()
                              : static_cast<T>(engine_());
        } else {
            std::apply([&](const auto&... field) { (fill(value.*field.plain), ...); }, T::Flat::fields());
        }
    }

private:
    std::mt19937_64 engine_;
};

} // namespace exchange
