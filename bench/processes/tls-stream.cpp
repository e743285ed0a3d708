// The limit between hosts: two processes that only block in the calls of one TLS stream over loopback. The protocol,
// the cipher and the types of keys are the same as in the message queue.
#include "common/interleaved.h"
#include "peer-process.h"
#include "timed-event.h"
#include "transport.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace bench {
namespace {

void require(bool good, const char* what) {
    if (!good) throw std::runtime_error(std::string("TLS stream: ") + what + " failed");
}
void requireCall(int result, const char* call) {
    if (result < 0) throw std::system_error(errno, std::generic_category(), call);
}

template <auto release> struct Releaser {
    template <class T> void operator()(T* object) const { release(object); }
};

using Context = std::unique_ptr<SSL_CTX, Releaser<SSL_CTX_free>>;

// A key and certificate that both ends use to authenticate to each other.
Context makeContext() {
    const std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>> key(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
    const std::unique_ptr<X509, Releaser<X509_free>> certificate(X509_new());
    require(key && certificate && X509_set_version(certificate.get(), X509_VERSION_3) == 1 &&
                ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1) == 1 &&
                X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -86400) &&
                X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 86400) &&
                X509_set_pubkey(certificate.get(), key.get()) == 1 &&
                X509_sign(certificate.get(), key.get(), nullptr) > 0,
            "making a certificate");
    Context context(SSL_CTX_new(TLS_method()));
    require(context && SSL_CTX_set_min_proto_version(context.get(), TLS1_3_VERSION) == 1 &&
                SSL_CTX_set1_groups_list(context.get(), "X25519") == 1 &&
                SSL_CTX_set1_sigalgs_list(context.get(), "ed25519") == 1 &&
                SSL_CTX_use_certificate(context.get(), certificate.get()) == 1 &&
                SSL_CTX_use_PrivateKey(context.get(), key.get()) == 1 &&
                X509_STORE_add_cert(SSL_CTX_get_cert_store(context.get()), certificate.get()) == 1 &&
                SSL_CTX_set_num_tickets(context.get(), 0) == 1,
            "preparing TLS");
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    return context;
}

class Listener {
public:
    Listener() {
        socklen_t size = sizeof address_;
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        requireCall(socket_, "socket");
        requireCall(bind(socket_, reinterpret_cast<sockaddr*>(&address_), size), "bind");
        requireCall(getsockname(socket_, reinterpret_cast<sockaddr*>(&address_), &size), "getsockname");
        requireCall(listen(socket_, 1), "listen");
    }
    ~Listener() { close(socket_); }
    int accept() const { return ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC); }
    int connect() const {
        const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        requireCall(::connect(client, reinterpret_cast<const sockaddr*>(&address_), sizeof address_), "connect");
        return client;
    }

private:
    const int socket_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address_{};
};

class End {
public:
    ~End() {
        if (socket_ >= 0) close(socket_);
    }
    // Takes ownership of the socket. handshake: SSL_accept or SSL_connect.
    void open(SSL_CTX& context, int socket, int (*handshake)(SSL*)) {
        requireCall(socket_ = socket, "accept");
        const int on = 1;
        requireCall(setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on), "setsockopt");
        ssl_.reset(SSL_new(&context));
        require(ssl_ && SSL_set_fd(ssl_.get(), socket) == 1 && handshake(ssl_.get()) == 1, "the handshake");
    }
    void send(const std::string& bytes) {
        require(SSL_write(ssl_.get(), bytes.data(), static_cast<int>(bytes.size())) == static_cast<int>(bytes.size()),
                "SSL_write");
    }
    void receive(std::string& bytes) {
        for (std::size_t at = 0; at < bytes.size();) {
            const int count = SSL_read(ssl_.get(), bytes.data() + at, static_cast<int>(bytes.size() - at));
            require(count > 0, "SSL_read");
            at += static_cast<std::size_t>(count);
        }
    }

private:
    int socket_ = -1;
    std::unique_ptr<SSL, Releaser<SSL_free>> ssl_;
};

// The server answers each request. If a request begins with a number and a size, it sends that many messages instead.
class TlsStream final : public Transport {
public:
    std::string name() const override { return "TLS stream"; }
    void connect() override { end_.open(*context_, listener_.connect(), SSL_connect); }
    double roundTrip() override {
        const auto start = Clock::now();
        end_.send(request_);
        end_.receive(answer_);
        return nanoseconds(Clock::now() - start);
    }
    double infos(std::size_t count, std::size_t textBytes) override {
        std::string request = std::to_string(count) + " " + std::to_string(infoBytes(textBytes));
        request.resize(request_.size(), ' ');
        std::string message(infoBytes(textBytes), '\0');
        const auto start = Clock::now();
        end_.send(request);
        for (std::size_t i = 0; i < count; ++i) end_.receive(message);
        return nanoseconds(Clock::now() - start);
    }

private:
    [[noreturn]] void serve(const std::function<void()>& ready) {
        ready();
        end_.open(*context_, listener_.accept(), SSL_accept);
        for (std::string request = request_;;) {
            end_.receive(request);
            if (request == request_) {
                end_.send(answer_);
                continue;
            }
            std::size_t sizeAt = 0;
            const std::size_t count = std::stoul(request, &sizeAt);
            const std::string message(std::stoul(request.substr(sizeAt)), 'm');
            for (std::size_t i = 0; i < count; ++i) end_.send(message);
        }
    }

    const Context context_ = makeContext();
    const Listener listener_;
    End end_;
    const std::string request_ = std::string(load().requestBytes, 'q');
    std::string answer_ = std::string(load().answerBytes, 'a');
    PeerProcess server_{[this](const auto& ready) { serve(ready); }};
};

} // namespace

std::unique_ptr<Transport> tlsStream() { return std::make_unique<TlsStream>(); }

} // namespace bench
