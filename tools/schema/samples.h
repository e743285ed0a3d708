// Sample values for records and arguments. They differ in every field, so that a test notices swapped fields.
#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace schema {

class Samples {
public:
    explicit Samples(std::uint32_t start = 0) : counter_(start) {}

    // The next value of a type. Lists get three elements; strings contain a NUL.
    template <class T> T next() {
        T value{};
        fill(value);
        return value;
    }

private:
    template <class T> void fill(T& value) {
        if constexpr (std::is_same_v<T, bool>) {
            value = ++counter_ % 2 != 0;
        } else if constexpr (std::is_enum_v<T> || std::is_arithmetic_v<T>) {
            value = static_cast<T>(++counter_ * 0x81030507U); // sets every byte, with either sign
        } else {
            std::apply([&](const auto&... field) { (fill(value.*field.plain), ...); }, T::Flat::fields());
        }
    }
    void fill(std::string& value) { value = "text" + std::string(1, '\0') + std::to_string(++counter_); }
    template <class T> void fill(std::vector<T>& value) {
        value.resize(3);
        for (T& element : value) fill(element);
    }
    template <class... T> void fill(std::tuple<T...>& value) {
        std::apply([&](T&... element) { (fill(element), ...); }, value);
    }

    std::uint32_t counter_;
};

} // namespace schema
