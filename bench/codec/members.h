// Visits the members of plain records, for codecs that handle them one by one.
#pragma once

#include <tuple>
#include <type_traits>

namespace bench {

template <class R>
concept Record = requires {
    std::remove_const_t<R>::Flat::fields();
};

// A constant, so that iterating is as fast as naming each member.
template <class R> inline constexpr auto fieldsOf = std::remove_const_t<R>::Flat::fields();
template <class R> inline constexpr std::size_t memberCount = std::tuple_size_v<decltype(R::Flat::fields())>;

template <Record R, class Visit> [[gnu::always_inline]] inline void eachMember(R& record, Visit&& visit) {
    std::apply(
        [&](const auto&... field) __attribute__((always_inline)) { (visit(record.*field.plain), ...); }, fieldsOf<R>);
}

} // namespace bench
