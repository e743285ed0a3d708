#include "unit/recording-member.h"

namespace {

using namespace frame_test;
using frame::Process;

TEST(ProcessMember, IsAttachedAtMostOnce) {
    Member member("A");
    EXPECT_EQ(member.detachProcess(), -107);
    EXPECT_EQ(member.setupDone(), -107);
    EXPECT_EQ(member.attachProcess(*Process::getInstance()), 0);
    EXPECT_EQ(member.attachProcess(*Process::getInstance()), -114);
    EXPECT_EQ(member.setupDone(), 0);
    EXPECT_EQ(member.detachProcess(), 0);
    EXPECT_EQ(member.getServiceId(), 0);
}

class Registry : public testing::Test {
protected:
    void SetUp() override { member.attachProcess(*Process::getInstance()); }
    void TearDown() override { member.detachProcess(); }

    Member member{"A"};
    boost::shared_ptr<frame::Interface> reference;
    int number = 0, other = 0;
};

TEST_F(Registry, FindsARegisteredObject) {
    EXPECT_EQ(member.registerInterface(&number, "number"), 0);
    ASSERT_EQ(Process::getInstance()->getInterfaceReference(reference, "number"), 0);
    EXPECT_EQ(reference->get<int>(), &number);
}

TEST_F(Registry, ReturnsNullForAnotherType) {
    member.registerInterface(&number, "number");
    Process::getInstance()->getInterfaceReference(reference, "number");
    EXPECT_EQ(reference->get<long>(), nullptr);
}

TEST_F(Registry, LeavesTheReferenceUnchangedWhenTheKeyIsMissing) {
    member.registerInterface(&number, "number");
    Process::getInstance()->getInterfaceReference(reference, "number");
    EXPECT_EQ(Process::getInstance()->getInterfaceReference(reference, "missing"), -2);
    EXPECT_EQ(reference->get<int>(), &number);
}

TEST_F(Registry, RejectsAKeyThatIsTaken) {
    member.registerInterface(&number, "number");
    EXPECT_EQ(member.registerInterface(&other, "number"), -17);
    Process::getInstance()->getInterfaceReference(reference, "number");
    EXPECT_EQ(reference->get<int>(), &number);
}

TEST_F(Registry, RejectsANullObjectAndADetachedMember) {
    EXPECT_EQ(member.registerInterface(static_cast<int*>(nullptr), "number"), -22);
    Member detached("B");
    EXPECT_EQ(detached.registerInterface(&number, "number"), -22);
    EXPECT_FALSE(isRegistered("number"));
}

TEST_F(Registry, RemovesEveryRegistrationOfAnObject) {
    member.registerInterface(&number, "number");
    member.registerInterface(&number, "alias");
    member.registerInterface(&other, "other");
    EXPECT_EQ(member.unregisterInterface(&number), 0);
    EXPECT_FALSE(isRegistered("number"));
    EXPECT_FALSE(isRegistered("alias"));
    EXPECT_TRUE(isRegistered("other"));
    EXPECT_EQ(member.unregisterInterface(&number), -2);
}

TEST_F(Registry, IgnoresTheRemovalOfNullWithoutALogLine) {
    member.registerInterface(&number, "number");
    testing::internal::CaptureStderr();
    EXPECT_EQ(member.unregisterInterface(static_cast<int*>(nullptr)), -2);
    EXPECT_EQ(member.unregisterInterface(nullptr), -2);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(isRegistered("number"));
}

TEST_F(Registry, DropsTheRegistrationsOfADetachedMember) {
    member.registerInterface(&number, "number");
    member.detachProcess();
    EXPECT_FALSE(isRegistered("number"));
}

} // namespace
