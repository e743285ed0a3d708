// The names of numbers.
#include <tvservice/values.h>

#include <gtest/gtest.h>
#include <set>
#include <string>

namespace {

#define VALUES_TEST_POINTER(constants, enumeration, title, about, VALUES) &tvservice::enumeration,
const genrpc::Enumeration* const enumerations[] = {TVSERVICE_ENUMERATIONS(VALUES_TEST_POINTER)};

TEST(Values, HaveTheNamesOfTheirConstants) {
    EXPECT_STREQ(nameOf(tvservice::terminalTypes, tvservice::terminalType::main), "main");
    EXPECT_STREQ(nameOf(tvservice::mtsTracks, tvservice::mtsTrack::second), "second programme");
    EXPECT_STREQ(nameOf(tvservice::terminalTypes, -1), "none");
    EXPECT_STREQ(tvservice::nameOfResult(tvservice::result::locked), "locked");
}

TEST(Values, AreUnknownWhenTheyAreNotInTheEnumeration) {
    EXPECT_STREQ(nameOf(tvservice::terminalTypes, 5), "unknown");
    EXPECT_STREQ(nameOf(tvservice::mtsTracks, -1), "unknown");
    EXPECT_STREQ(nameOf(tvservice::terminalTypes, 0xFFFFFFFFU), "unknown")
        << "an unsigned number is not a negative one";
    EXPECT_EQ(find(tvservice::mtsTracks, 3), nullptr);
}

TEST(Values, HaveOneNumberAndOneNameEach) {
    std::set<std::string> titles;
    for (const auto* enumeration : enumerations) {
        SCOPED_TRACE(enumeration->name);
        EXPECT_TRUE(titles.insert(enumeration->title).second);
        std::set<std::int32_t> numbers;
        std::set<std::string> names;
        for (const auto& [number, name, meaning] : enumeration->values) {
            EXPECT_TRUE(numbers.insert(number).second) << number;
            EXPECT_TRUE(names.insert(name).second) << name;
            EXPECT_NE(std::string(name), "unknown");
        }
    }
}

} // namespace
