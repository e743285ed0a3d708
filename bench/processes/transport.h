// One way to a server in another process and back.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace bench {

// How many bytes a request and its answer are on the wire of the message queue: what the other transports carry too.
struct Load {
    std::size_t requestBytes, answerBytes;
};
Load load();
// The same of a notification with a text of so many bytes.
std::size_t infoBytes(std::size_t textBytes);

class Transport {
public:
    virtual ~Transport() = default;
    virtual std::string name() const = 0;
    // Connects. The servers have been made before; from here on the process may have threads.
    virtual void connect() = 0;
    // Sends a request and waits for its answer; the nanoseconds from the sending until the answer is there.
    virtual double roundTrip() = 0;
    // Has the server send `count` small notifications; the nanoseconds until the last one is there. Not every transport
    // does it.
    virtual double notifications(std::size_t count);
    // The same with notifications that have a text, which are infoBytes(textBytes) on the wire.
    virtual double infos(std::size_t count, std::size_t textBytes);
};

// They make their server processes, hence while the process has one thread; folder is for sockets. The last three
// exist only where their packages were there when the program was built (BENCH_TLS, BENCH_SD_BUS, BENCH_GRPC).
std::unique_ptr<Transport> rawSocket();
std::unique_ptr<Transport> tlsStream();
std::unique_ptr<Transport> sdBus();
std::unique_ptr<Transport> grpcPeer(const std::string& folder);

} // namespace bench
