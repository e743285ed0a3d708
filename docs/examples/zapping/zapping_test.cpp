// Tests of the zapping application, each in a receiver of its own with simulated time.
#include <tvservice-adapter/testing/main.h>
#include <tvservice-adapter/testing/matchers.h>

extern "C" void** frameCreateApplicationArray(); // zapping.cpp

namespace {

using namespace std::chrono_literals;
using namespace tvtest;
using testing::ElementsAre;

class ZappingTest : public testing::Test {
protected:
    void zap() { ASSERT_EQ(receiver.start(frameCreateApplicationArray), 0); }
    Receiver receiver;
};

const auto first = Shown("0:0", "dvb://1.1.1"), last = Shown("0:0", "dvb://1.1.20");
const auto stopped = Stopped("1:0");

TEST_F(ZappingTest, ShowsTheFirstAndTheLastChannelAndStopsTheOtherTerminal) {
    zap();
    EXPECT_THAT(receiver.answers(), ElementsAre(first, last, stopped));
}
TEST_F(ZappingTest, RequestsNoChannelInBetween) {
    zap();
    EXPECT_THAT(receiver.tv().requests(), ElementsAre(Play("0:0", "dvb://1.1.1"), Play("0:0", "dvb://1.1.20"),
                                                      Stop("1:0"), Stop("1:0"))); // stops, then shows nothing
}
TEST_F(ZappingTest, StopsBothServices) {
    zap();
    EXPECT_THAT(receiver.mm().requests(), ElementsAre(Stop("1:0")));
}
TEST_F(ZappingTest, GoesOnWhenAChannelIsRefused) {
    receiver.tv().when("dvb://1.1.1", refuses(tvservice::result::locked));
    zap();
    EXPECT_THAT(receiver.answers(), ElementsAre(Refused("0:0", tvservice::result::locked), last, stopped));
}
TEST_F(ZappingTest, WaitsForASlowTuner) {
    receiver.tv().next(answers().after(4s));
    zap();
    receiver.advance(3s);
    EXPECT_THAT(receiver.tv().requests(), ElementsAre(Play("0:0", "dvb://1.1.1")));
    receiver.advance(1s);
    EXPECT_THAT(receiver.answers(), ElementsAre(At(4s, first), last, stopped));
}
TEST_F(ZappingTest, GoesOnAfterALostAnswerWithinSevenAndAHalfSeconds) {
    receiver.tv().next(staysSilent());
    zap();
    receiver.advance(7500ms);
    EXPECT_THAT(receiver.dropped(), ElementsAre(Dropped("0:0")));
    EXPECT_THAT(receiver.answers(), ElementsAre(last, stopped));
}
TEST_F(ZappingTest, IsNotMisledByALateAnswer) {
    receiver.tv().next(answers().after(10s));
    zap();
    receiver.advance(10s);
    EXPECT_THAT(receiver.answers(), ElementsAre(last, stopped, At(10s, first)));
    EXPECT_THAT(receiver.requests(), testing::SizeIs(5));
}
TEST_F(ZappingTest, IgnoresASecondAnswer) {
    receiver.tv().when("dvb://1.1.1", answers().twice());
    zap();
    EXPECT_THAT(receiver.answers(), ElementsAre(first, first, last, stopped));
}
TEST_F(ZappingTest, GoesOnWhenTheTvServiceComesBack) {
    receiver.tv().die();
    zap();
    receiver.advance(5s);
    receiver.tv().comeBack();
    receiver.advance(2500ms);
    EXPECT_THAT(receiver.answers(), ElementsAre(last, stopped));
}
TEST_F(ZappingTest, RequestsNothingMoreOnceItIsStopped) {
    receiver.tv().always(staysSilent());
    zap();
    receiver.stopApplications();
    receiver.advance(1min);
    EXPECT_THAT(receiver.requests(), ElementsAre(Play("0:0", "dvb://1.1.1")));
}

} // namespace

int main(int count, char** words) { return runTests(count, words); }
