// Messages as frames to one peer or several.
#include "queue/outbox.h"

#include "support/queue-fixture.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

namespace {

using host::io::Outbox;

class OutboxTest : public testing::Test {
protected:
    void add(Outbox& outbox, std::uint32_t number, host::Bytes* frame = nullptr) {
        outbox.add({ids, queue_test::numberMeta, plan, &number, frame}, Outbox::Time::max());
    }
    static std::string contentOf(const Outbox& outbox) { return {outbox.data(), outbox.bytes()}; }

    const frame::MsgIds ids{1, 2};
    const host::Plan& plan = host::planOf(queue_test::numberTable);
    Outbox first{64}, second{64};
};

TEST_F(OutboxTest, CopiesAnAlreadyMarshalledMessageForSeveralPeers) {
    host::Bytes frame;
    add(first, 1, &frame);
    add(second, 2, &frame); // does not read the payload again
    EXPECT_EQ(contentOf(second), contentOf(first));
    EXPECT_EQ(second.messages(), 1U);
}

TEST_F(OutboxTest, WritesTheSameFrameForOnePeerAndForSeveral) {
    host::Bytes frame;
    add(first, 1);
    add(second, 1, &frame);
    EXPECT_EQ(contentOf(second), contentOf(first));
}

TEST_F(OutboxTest, AddsNothingForAMessageThatCannotBeMarshalled) {
    const vdlDeserString_t text{5, nullptr};
    host::Bytes frame;
    const auto& planOfText = host::planOf(queue_test::textTable);
    for (host::Bytes* shared : {static_cast<host::Bytes*>(nullptr), &frame}) {
        add(first, 1);
        const std::string before = contentOf(first);
        EXPECT_THROW(first.add({ids, queue_test::textMeta, planOfText, &text, shared}, Outbox::Time::max()),
                     std::invalid_argument);
        EXPECT_EQ(contentOf(first), before);
        EXPECT_EQ(frame.size(), 0U);
    }
}

} // namespace
