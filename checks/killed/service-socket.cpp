#include "service-socket.h"

#include <genrpc/flat-region.h>
#include <host/marshaller.h>
#include <host/message-queue.h>
#include <mmservice/messages.h>
#include <tvservice/messages.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <tuple>
#include <unistd.h>

// Not every C library's header declares C linkage itself.
extern "C" {
#include <sys/pidfd.h>
}

namespace killed {
namespace {

using receiver::ReceiverError;

[[noreturn]] void fail(const std::string& what) { throw ReceiverError(what + ": " + std::strerror(errno)); }

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() { close(number_); }
    operator int() const { return number_; }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

private:
    const int number_;
};

bool isConnectionTo(int socket, pid_t client) {
    int listens = 0;
    socklen_t size = sizeof listens;
    if (getsockopt(socket, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) != 0 || listens != 0) return false;
    sockaddr_un own{};
    size = sizeof own;
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&own), &size) != 0 || own.sun_family != AF_UNIX) return false;
    if (!std::string(own.sun_path).ends_with(".sock")) return false; // it belongs to the shell
    ucred peer{};
    size = sizeof peer;
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.pid == client;
}

void sendAll(int socket, const std::string& bytes) {
    if (send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
        fail("cannot send all bytes");
}

std::string receive(int socket, std::size_t size) {
    std::string bytes(size, '\0');
    if (recv(socket, bytes.data(), size, MSG_WAITALL) != static_cast<ssize_t>(size))
        fail("the service sends too few bytes");
    return bytes;
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

template <class Word> void put(std::string& bytes, Word word) {
    bytes.append(reinterpret_cast<const char*>(&word), sizeof word);
}

std::string frame(const ::frame::MsgMeta& meta, std::uint32_t size, const std::string& body) {
    std::string bytes;
    for (const std::uint32_t word :
         {size, meta.instance, meta.interfaceCode, meta.messageId, std::uint32_t{meta.flag}, 0U, 0U, 0U})
        put(bytes, word);
    return bytes + body;
}

template <class Message> std::string answerWith(const std::string& reqId, const std::string& uri) {
    typename Message::Body::Arguments arguments;
    auto& info = std::get<0>(arguments).emplace_back();
    info.reqId = reqId;
    info.uri = uri;
    const auto region = genrpc::FlatRegion::create(4096);
    host::Bytes body;
    host::marshal(host::planOf(*Message::table()), Message::Body::build(*region, std::get<0>(arguments)), body,
                  host::maximumMessageBytes);
    return frame(Message::meta, static_cast<std::uint32_t>(body.size()), {body.data(), body.size()});
}

} // namespace

std::string serviceNameOf(Part service) {
    return service == Part::tvService ? tvservice::serviceName : mmservice::serviceName;
}

void sendAs(pid_t service, pid_t client, const std::string& bytes) {
    const Descriptor process(pidfd_open(service, 0));
    if (process < 0) fail("service process " + std::to_string(service));
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(service) + "/fd")) {
        const Descriptor socket(pidfd_getfd(process, std::stoi(entry.path().filename()), 0));
        if (socket < 0 && errno == EPERM) fail("no permission to use the service's sockets");
        if (socket >= 0 && isConnectionTo(socket, client)) return sendAll(socket, bytes);
    }
    throw ReceiverError("the service has no connection to the client");
}

bool hasClient(pid_t service, const std::string& socketPath) {
    std::ifstream sockets("/proc/" + std::to_string(service) + "/net/unix");
    constexpr const char* listens = " 00010000 ";
    for (std::string line; std::getline(sockets, line);)
        if (line.ends_with(' ' + socketPath) && line.find(listens) == std::string::npos) return true;
    return false;
}

std::string helloOf(const std::string& socketPath) {
    const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = addressOf(socketPath);
    if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) fail(socketPath);
    constexpr std::size_t sizeAt = 12;
    std::string hello = receive(socket, sizeAt + sizeof(std::uint32_t));
    std::uint32_t size = 0;
    std::memcpy(&size, hello.data() + sizeAt, sizeof size);
    return hello + receive(socket, size - hello.size());
}

void impersonate(const std::string& socketPath, const std::string& bytes) {
    std::filesystem::remove(socketPath);
    const Descriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = addressOf(socketPath);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(listener, 1) != 0)
        fail(socketPath);
    pollfd waiting{listener, POLLIN, 0};
    if (poll(&waiting, 1, static_cast<int>(receiver::defaultTimeout.count())) != 1)
        throw ReceiverError("no client connected");
    const Descriptor client(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    sendAll(client, bytes);
    std::filesystem::remove(socketPath);
}

std::string answerFrame(Part service, const std::string& reqId, const std::string& uri) {
    return service == Part::tvService ? answerWith<tvservice::messages::TvServiceInfo>(reqId, uri)
                                      : answerWith<mmservice::messages::MmServiceInfo>(reqId, uri);
}

std::string garbage(Part service, unsigned number) {
    const ::frame::MsgMeta known = service == Part::tvService ? tvservice::messages::TvServiceInfo::meta
                                                              : mmservice::messages::MmServiceInfo::meta;
    auto unknown = known;
    unknown.messageId ^= 0x7F000000;
    switch (number % 3) {
        case 0:
            return std::string(257, '\xEE');
        case 1:
            return frame(unknown, 8, std::string(8, '\x11'));
        default: // a list whose elements are missing
            return frame(known, 8, std::string(8, '\x77'));
    }
}

} // namespace killed
