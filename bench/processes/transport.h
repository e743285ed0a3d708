// A transport to a server in another process.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace bench {

// The sizes of a request and its answer in the message queue's wire format. All other transports use the same sizes.
struct Load {
    std::size_t requestBytes, answerBytes;
};
Load load();
// The size of a notification with a text of `textBytes` bytes.
std::size_t infoBytes(std::size_t textBytes);

class Transport {
public:
    virtual ~Transport() = default;
    virtual std::string name() const = 0;
    // The servers must exist before this call. From then on the process may have several threads.
    virtual void connect() = 0;
    // Sends a request and waits for its answer. Returns the nanoseconds between them.
    virtual double roundTrip() = 0;
    // Makes the server send `count` small notifications. Returns the nanoseconds until the last one arrives. Not all
    // transports support this.
    virtual double notifications(std::size_t count);
    // The same with notifications that contain a text; each has infoBytes(textBytes) bytes on the wire.
    virtual double infos(std::size_t count, std::size_t textBytes);
};

// Each creates its server process, so call them while this process has one thread. folder is for sockets. The last
// three exist only if their packages were installed at build time (BENCH_TLS, BENCH_SD_BUS, BENCH_GRPC).
std::unique_ptr<Transport> rawSocket();
std::unique_ptr<Transport> tlsStream();
std::unique_ptr<Transport> sdBus();
std::unique_ptr<Transport> grpcPeer(const std::string& folder);

} // namespace bench
