#include "service.h"

#include "traffic.h"

#include <host/marshaller.h>
#include <host/message-queue.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <malloc.h>
#include <string_view>
#include <unistd.h>

namespace soak {
namespace {

// The numbers received from a source. Those of different connections may overtake each other slightly.
class Seen {
public:
    // Whether this number is new, and less than 64 ahead of the first missing one.
    bool add(std::uint32_t number) {
        const std::uint32_t ahead = number - first_;
        if (ahead >= 64 || (later_ >> ahead & 1U) != 0) return false;
        later_ |= std::uint64_t{1} << ahead;
        for (; (later_ & 1U) != 0; later_ >>= 1) ++first_;
        return true;
    }
    bool isNext(std::uint32_t number) const { return number == first_; }

private:
    std::uint32_t first_ = 0; // the first missing number
    std::uint64_t later_ = 0; // a bit for each number from first_ on: whether it was received
};

struct Counts {
    std::array<Seen, sources> seen;
    std::atomic<std::uint64_t> valid{0}, wrong{0};
};

int handle(const frame::MsgMeta&, const frame::TransportInfo&, const void* payload, void* context) {
    auto& counts = *static_cast<Counts*>(context);
    const auto& message = *static_cast<const Numbered*>(payload);
    const std::uint32_t source = message.source, number = message.number;
    const std::string_view text(message.text.data.get(), message.text.length);
    const bool good = source < sources && (source != queueClient || counts.seen[source].isNext(number)) &&
                      counts.seen[source].add(number) && text.size() == lengthOf(number) &&
                      text.find_first_not_of(letterOf(number)) == std::string_view::npos;
    ++(good ? counts.valid : counts.wrong);
    return 0;
}

} // namespace

std::uint64_t heapInUse() {
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

int serve(int requests, int answers) {
    host::MessageQueue queue;
    Counts counts;
    queue.serve(service, messages(), 4096).registerMessageHandler(numbered().meta, handle, &counts, *numbered().table);
    queue.start();
    for (char request = 0; read(requests, &request, 1) == 1;) {
        const auto statistics = queue.statistics().at(0);
        const auto flat = host::flatHeapUsage();
        const Report report{counts.valid, counts.wrong, statistics.received, statistics.undecodable,
                            heapInUse(),  flat.blocks,  flat.bytes};
        if (write(answers, &report, sizeof report) != sizeof report) return 1;
    }
    return 0;
}

} // namespace soak
