// Where the sound of a terminal is heard.
#include "media/gstreamer/playback.h"

#include <atomic>
#include <gst/base/gstbasesink.h>
#include <gtest/gtest.h>
#include <kit/wait.h>

namespace {

using namespace media;

// A sound card that counts.
std::atomic<int> cards = 0, played = 0; // cards in use, buffers

struct Card {
    GstBaseSink parent;
};
struct CardClass {
    GstBaseSinkClass parent;
};
GstFlowReturn render(GstBaseSink*, GstBuffer*) {
    ++played;
    return GST_FLOW_OK;
}
gboolean start(GstBaseSink*) {
    ++cards;
    return TRUE;
}
gboolean stop(GstBaseSink*) {
    --cards;
    return TRUE;
}

GType cardType() {
    static GstStaticPadTemplate entry =
        GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS_ANY);
    static const GTypeInfo info{.class_size = sizeof(CardClass),
                                .base_init = nullptr,
                                .base_finalize = nullptr,
                                .class_init =
                                    [](gpointer type, gpointer) {
                                        gst_element_class_add_static_pad_template(GST_ELEMENT_CLASS(type), &entry);
                                        gst_element_class_set_static_metadata(GST_ELEMENT_CLASS(type), "Test card",
                                                                              "Sink/Audio", "Counts", "Tests");
                                        GST_BASE_SINK_CLASS(type)->render = render;
                                        GST_BASE_SINK_CLASS(type)->start = start;
                                        GST_BASE_SINK_CLASS(type)->stop = stop;
                                    },
                                .class_finalize = nullptr,
                                .class_data = nullptr,
                                .instance_size = sizeof(Card),
                                .n_preallocs = 0,
                                .instance_init = nullptr,
                                .value_table = nullptr};
    static const GType type = g_type_register_static(GST_TYPE_BASE_SINK, "TestCard", &info, GTypeFlags{});
    return type;
}

class APlayback : public testing::TestWithParam<Source> {
protected:
    APlayback() {
        gst_init(nullptr, nullptr);
        gst_element_register(nullptr, name, GST_RANK_NONE, cardType());
    }
    static bool isHeard() {
        const int before = played;
        return receiver::waitUntil([&] { return played > before; }, std::chrono::seconds(20));
    }
    std::unique_ptr<Playback> on(const Output& output) {
        return std::make_unique<Playback>(
            GetParam(), nullptr, output, g_main_context_default(), [](const std::function<void()>& work) { work(); },
            Playback::Events{.shown = [this] { hasBegun = true; },
                             .tracks = [] {},
                             .signal = [] {},
                             .over = [](const Outcome& outcome) { ADD_FAILURE() << outcome.reason; }});
    }

    static constexpr const char* name = "testcard";
    const Output main{nullptr, name}, other{};
    std::atomic<bool> hasBegun = false;
};

TEST_P(APlayback, IsHeardOnTheMainTerminalOnlyWhereverItHasBegun) {
    const auto playback = on(main);
    EXPECT_TRUE(isHeard());
    playback->moveTo(other);
    EXPECT_TRUE(receiver::waitUntil([] { return cards == 0; }, std::chrono::seconds(20)));
    playback->moveTo(main);
    EXPECT_TRUE(isHeard());
    for (int i = 0; i < 20; ++i) {
        playback->moveTo(other);
        playback->moveTo(main);
    }
    EXPECT_TRUE(isHeard());
    EXPECT_TRUE(receiver::waitUntil([] { return cards == 1; }, std::chrono::seconds(20)));
}

TEST_P(APlayback, IsHeardWhenItIsMovedToTheMainTerminalAtAnyTime) {
    for (const bool waits : {false, true}) {
        hasBegun = false;
        const auto playback = on(other);
        EXPECT_TRUE(!waits || receiver::waitUntil([&] { return hasBegun.load(); }, std::chrono::seconds(20)));
        playback->moveTo(main);
        EXPECT_TRUE(isHeard()) << waits;
    }
    EXPECT_EQ(cards, 0);
}

INSTANTIATE_TEST_SUITE_P(OfWhatHasNoTracks, APlayback,
                         testing::Values(Source{.uri = "dvb://test", .isChannel = true, .transport = "test://Test"},
                                         Source{.uri = "hdmi://60"},
                                         Source{.uri = std::string("file://") + MEDIA_SAMPLES + "/recording.ts"}));

} // namespace
