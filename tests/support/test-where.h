// Defines tests only where they apply, so that no test is skipped at run time.
#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <unistd.h>

namespace support {

// Where pointers are as short as flat pointers, flat blocks come from malloc and have no limit.
inline constexpr bool flatMemoryIsLimited = sizeof(void*) > sizeof(std::uint32_t);

// The preset with the address sanitizer also checks the types of objects. That check reads memory through a pipe;
// without descriptors for the pipe it reports every object as wrong.
#ifdef __SANITIZE_ADDRESS__
inline constexpr bool runsWithoutDescriptors = false;
#else
inline constexpr bool runsWithoutDescriptors = true;
#endif

// Root can become another user, change the owner of files, and mount.
inline bool isRoot() { return geteuid() == 0; }

} // namespace support

// Like TEST_F, but the test exists only if the condition holds. The condition is evaluated before main.
#define TEST_F_WHERE(condition, Fixture, Name)                                                                     \
    class Fixture##_##Name##_Test : public Fixture {                                                               \
        void TestBody() override;                                                                                  \
    };                                                                                                             \
    [[maybe_unused]] const bool Fixture##_##Name##_exists =                                                        \
        (condition) && testing::RegisterTest(#Fixture, #Name, nullptr, nullptr, __FILE__, __LINE__,                \
                                             []() -> Fixture* { return new Fixture##_##Name##_Test; }) != nullptr; \
    void Fixture##_##Name##_Test::TestBody()
