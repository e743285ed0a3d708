// sd-bus, peer to peer, without a daemon.
#include "common/interleaved.h"
#include "peer-process.h"
#include "timed-event.h"
#include "transport.h"

#include <cerrno>
#include <cstdint>
#include <sys/socket.h>
#include <system_error>
#include <systemd/sd-bus.h>
#include <systemd/sd-id128.h>

namespace bench {
namespace {

constexpr const char *path = "/peer", *interface = "bench.Peer";
constexpr const char* smallRecord = "yiiiii"; // the same fields as a tuner result

int check(int result, const char* what) {
    if (result < 0) throw std::system_error(-result, std::generic_category(), what);
    return result;
}

struct MessageOwner {
    sd_bus_message* message = nullptr;
    ~MessageOwner() { sd_bus_message_unref(message); }
};

void addBytes(sd_bus_message* message, const std::string& bytes) {
    check(sd_bus_message_append_array(message, 'y', bytes.data(), bytes.size()), "append");
}
void readBytes(sd_bus_message* message, std::size_t expected) {
    const void* bytes;
    std::size_t size;
    check(sd_bus_message_read_array(message, 'y', &bytes, &size), "read");
    if (size != expected) throw std::system_error(EBADMSG, std::generic_category(), "bus message");
}

sd_bus* start(int socket, bool server) {
    sd_bus* bus = nullptr;
    sd_id128_t id;
    check(sd_bus_new(&bus), "sd_bus_new");
    check(sd_bus_set_fd(bus, socket, socket), "sd_bus_set_fd");
    check(sd_id128_randomize(&id), "sd_id128_randomize");
    if (server) check(sd_bus_set_server(bus, 1, id), "sd_bus_set_server");
    check(sd_bus_start(bus), "sd_bus_start");
    return bus;
}

void answerCall(sd_bus_message* call) {
    static const std::string answer(load().answerBytes, 'a');
    readBytes(call, load().requestBytes);
    MessageOwner reply;
    check(sd_bus_message_new_method_return(call, &reply.message), "method_return");
    addBytes(reply.message, answer);
    check(sd_bus_send(nullptr, reply.message, nullptr), "send");
}

void sendNotifications(sd_bus_message* call) {
    std::uint64_t count;
    check(sd_bus_message_read(call, "t", &count), "read");
    check(sd_bus_reply_method_return(call, nullptr), "reply");
    sd_bus* bus = sd_bus_message_get_bus(call);
    for (std::uint64_t i = 1; i <= count; ++i) {
        check(sd_bus_emit_signal(bus, path, interface, "Notified", smallRecord, 1, static_cast<std::int32_t>(i), 2, 1,
                                 78, 96),
              "emit");
        if (i % 64 == 0) check(sd_bus_flush(bus), "flush"); // the bus's queue has a limit
    }
    check(sd_bus_flush(bus), "flush");
}

class SdBus final : public Transport {
public:
    SdBus() {
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends_) != 0)
            throw std::system_error(errno, std::generic_category(), "socketpair");
        server_ = std::make_unique<PeerProcess>([this](const auto& ready) { serve(ready); });
    }
    ~SdBus() override { sd_bus_unref(bus_); }

    std::string name() const override { return "sd-bus"; }
    void connect() override {
        bus_ = start(ends_[0], false);
        check(sd_bus_add_filter(bus_, nullptr, onMessage, this), "sd_bus_add_filter");
    }
    double roundTrip() override {
        const auto start = Clock::now();
        MessageOwner call, reply;
        check(sd_bus_message_new_method_call(bus_, &call.message, nullptr, path, interface, "Call"), "method_call");
        addBytes(call.message, request_);
        check(sd_bus_call(bus_, call.message, 0, nullptr, &reply.message), "sd_bus_call");
        readBytes(reply.message, load().answerBytes);
        return nanoseconds(Clock::now() - start);
    }
    double notifications(std::size_t count) override {
        received_ = 0;
        const auto start = Clock::now();
        check(sd_bus_call_method(bus_, nullptr, path, interface, "Notify", nullptr, nullptr, "t", std::uint64_t{count}),
              "Notify");
        while (received_ < count)
            if (check(sd_bus_process(bus_, nullptr), "sd_bus_process") == 0)
                check(sd_bus_wait(bus_, UINT64_MAX), "sd_bus_wait");
        return nanoseconds(Clock::now() - start);
    }

private:
    static int onMessage(sd_bus_message* message, void* context, sd_bus_error*) {
        if (!sd_bus_message_is_signal(message, interface, "Notified")) return 0;
        std::uint8_t byte;
        std::int32_t number[5];
        const int read = sd_bus_message_read(message, smallRecord, &byte, &number[0], &number[1], &number[2],
                                             &number[3], &number[4]);
        if (read < 0) return read;
        ++static_cast<SdBus*>(context)->received_;
        return 1;
    }
    static int onCall(sd_bus_message* message, void*, sd_bus_error*) {
        if (sd_bus_message_is_method_call(message, interface, "Call"))
            answerCall(message);
        else
            sendNotifications(message);
        return 1;
    }
    [[noreturn]] void serve(const std::function<void()>& ready) {
        sd_bus* bus = start(ends_[1], true);
        check(sd_bus_add_object(bus, nullptr, path, onCall, nullptr), "sd_bus_add_object");
        ready();
        for (;;)
            if (check(sd_bus_process(bus, nullptr), "sd_bus_process") == 0)
                check(sd_bus_wait(bus, UINT64_MAX), "sd_bus_wait");
    }

    int ends_[2];
    std::unique_ptr<PeerProcess> server_;
    sd_bus* bus_ = nullptr;
    std::size_t received_ = 0;
    const std::string request_ = std::string(load().requestBytes, 'q');
};

} // namespace

std::unique_ptr<Transport> sdBus() { return std::make_unique<SdBus>(); }

} // namespace bench
