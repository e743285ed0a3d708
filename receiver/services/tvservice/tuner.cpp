#include "tvservice/tuner.h"

#include "tvservice/streams.h"

#include <tvservice/values.h>

namespace services {

tvservice::TvServiceTunerStatusMessage_t tuningFor(const Terminal& terminal, const std::string& channel) {
    constexpr std::int32_t firstFrequency = 474000, channelSpacing = 8000, symbolRate = 6875, channelCount = 48;
    tvservice::TvServiceTunerStatusMessage_t message;
    message.byteParam1 = tvservice::tunerState::tuning;
    message.intParam1 = terminal.type;
    message.terminal = {terminal.type, terminal.id};
    message.intParam4 = serviceIdOf(channel).stream;
    message.intParam2 = firstFrequency + channelSpacing * (message.intParam4 % channelCount);
    message.intParam3 = symbolRate;
    return message;
}

tvservice::TvServiceTunerResult_t tunedFor(const Terminal& terminal) {
    tvservice::TvServiceTunerResult_t message;
    message.byteParam1 = tvservice::signalState::present;
    message.intParam1 = terminal.type;
    message.terminal = {terminal.type, terminal.id};
    message.intParam2 = 78;
    message.intParam3 = 96;
    return message;
}

} // namespace services
