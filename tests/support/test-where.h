// Tests that exist only where they can apply, so that a run counts none that did nothing.
#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <unistd.h>

namespace support {

// Where pointers are as short as flat ones, flat blocks come from malloc and have no limit.
inline constexpr bool flatMemoryIsLimited = sizeof(void*) > sizeof(std::uint32_t);

// The preset with the address sanitizer checks the types of objects, too: that check reads memory through a pipe, and
// without descriptors for the pipe it takes every object for a wrong one.
#ifdef __SANITIZE_ADDRESS__
inline constexpr bool runsWithoutDescriptors = false;
#else
inline constexpr bool runsWithoutDescriptors = true;
#endif

// Who can be another user, give files away and mount.
inline bool isRoot() { return geteuid() == 0; }

} // namespace support

// As TEST_F; without the condition, which is evaluated before main, there is no such test.
#define TEST_F_WHERE(condition, Fixture, Name)                                                                     \
    class Fixture##_##Name##_Test : public Fixture {                                                               \
        void TestBody() override;                                                                                  \
    };                                                                                                             \
    [[maybe_unused]] const bool Fixture##_##Name##_exists =                                                        \
        (condition) && testing::RegisterTest(#Fixture, #Name, nullptr, nullptr, __FILE__, __LINE__,                \
                                             []() -> Fixture* { return new Fixture##_##Name##_Test; }) != nullptr; \
    void Fixture##_##Name##_Test::TestBody()
