#include "support/remote-socket.h"

#ifdef TVSA_REMOTE
#include "base/endpoint.h"
#include "base/file-descriptor.h"
#include "remote/keys.h"
#include "remote/tls.h"

#include <host/configuration.h>
#include <host/keys.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/params.h>
#include <openssl/x509.h>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

namespace support {
namespace {

using host::remote::Releaser;
using host::remote::Session;
using Key = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;

// The configured public key with another secret key.
Key stolenKey(const host::KeyPair& keys) {
    std::array<unsigned char, 32> shown{}, owned{};
    std::size_t size = shown.size();
    EVP_PKEY_get_raw_public_key(host::remote::secretKeyOf(keys.secretKey).get(), shown.data(), &size);
    owned.fill(7);
    OSSL_PARAM parts[] = {
        OSSL_PARAM_construct_octet_string(OSSL_PKEY_PARAM_PUB_KEY, shown.data(), shown.size()),
        OSSL_PARAM_construct_octet_string(OSSL_PKEY_PARAM_PRIV_KEY, owned.data(), owned.size()),
        OSSL_PARAM_construct_end(),
    };
    const std::unique_ptr<EVP_PKEY_CTX, Releaser<EVP_PKEY_CTX_free>> maker(
        EVP_PKEY_CTX_new_from_name(nullptr, "ED25519", nullptr));
    EVP_PKEY* made = nullptr;
    EXPECT_EQ(1, EVP_PKEY_fromdata_init(maker.get()));
    EXPECT_EQ(1, EVP_PKEY_fromdata(maker.get(), &made, EVP_PKEY_KEYPAIR, parts));
    return Key(made);
}

void useKey(SSL_CTX* context, EVP_PKEY* key, const EVP_MD* digest) {
    const std::unique_ptr<X509, Releaser<X509_free>> certificate(X509_new());
    X509_set_version(certificate.get(), X509_VERSION_3);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
    X509_set_pubkey(certificate.get(), key);
    EXPECT_GT(X509_sign(certificate.get(), key, digest), 0);
    EXPECT_EQ(1, SSL_CTX_use_certificate(context, certificate.get()));
    EXPECT_EQ(1, SSL_CTX_use_PrivateKey(context, key));
}

host::remote::Context contextWith(Fault fault) {
    const auto keys = host::readKeys(host::setting("keys.file")->text);
    if (fault == Fault::none || fault == Fault::unfinishedProof) return host::remote::makeContext(keys);
    host::remote::Context context(SSL_CTX_new(TLS_client_method()));
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_NONE, nullptr);
    if (fault == Fault::stolenKey) useKey(context.get(), stolenKey(keys).get(), nullptr);
    if (fault == Fault::unknownAlgorithm) useKey(context.get(), Key(EVP_EC_gen("P-256")).get(), EVP_sha256());
    if (fault == Fault::olderProtocol) SSL_CTX_set_max_proto_version(context.get(), TLS1_2_VERSION);
    return context;
}

struct AnyKey : host::remote::KeyCheck {
    Answer check(const std::string&) override { return Answer::accepted; }
};

host::io::FileDescriptor connectedTo(const std::string& address) {
    const auto addresses = host::net::addressesOf("tuner", address, host::hostPortOf("tuner", address));
    host::io::FileDescriptor socket(::socket(addresses[0].data()->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(0, ::connect(socket.get(), addresses[0].data(), static_cast<socklen_t>(addresses[0].size())));
    return socket;
}

} // namespace

struct RemotePeer::State {
    State(const std::string& address, Fault fault) : context(contextWith(fault)) {
        socket = connectedTo(address);
        if (fault == Fault::unfinishedProof) {
            int ends[2];
            EXPECT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
            service = std::exchange(socket, host::io::FileDescriptor(ends[0]));
            line = host::io::FileDescriptor(ends[1]);
        }
        made = std::make_unique<Session>(*context, socket.get(), false, anyKey);
    }

    // Repeats the step until it is done. Returns false when the session ends or the step takes too long.
    template <class Step> bool finish(Step step) {
        for (;;) {
            const auto progress = step();
            if (progress == Session::Progress::done) return true;
            if (progress == Session::Progress::over) return false;
            if (progress == Session::Progress::again) continue;
            const bool input = progress == Session::Progress::needsInput;
            pollfd item{socket.get(), static_cast<short>(input ? POLLIN : POLLOUT), 0};
            if (::poll(&item, 1, 10000) <= 0) return false;
            if (!input) continue;
            const ssize_t count = ::recv(socket.get(), session().room(), Session::roomBytes, 0);
            session().arrived(count > 0 ? static_cast<std::size_t>(count) : 0, count < 0 ? errno : 0);
        }
    }

    // Sends everything up to its certificate, which is in its first encrypted record.
    void showCertificateOnly() {
        std::array<char, 8192> bytes;
        const auto sent = [&] { return ::recv(line.get(), bytes.data(), bytes.size(), MSG_DONTWAIT); };
        (void)session().handshake();
        for (ssize_t count = sent();
             ::send(service.get(), bytes.data(), static_cast<std::size_t>(count), 0) == count;) {
            const ssize_t received = ::recv(service.get(), session().room(), Session::roomBytes, 0);
            if (received <= 0) return;
            session().arrived(static_cast<std::size_t>(received), 0);
            while (session().handshake() == Session::Progress::again) {
            }
            count = sent();
            if (count < 0) {
                count = 0; // receive more
                continue;
            }
            constexpr char encrypted = 23;
            std::size_t end = 0;
            for (bool last = false; !last;) {
                last = bytes[end] == encrypted;
                end += 5 + static_cast<std::size_t>(static_cast<unsigned char>(bytes[end + 3]) << 8 |
                                                    static_cast<unsigned char>(bytes[end + 4]));
            }
            EXPECT_LT(end, static_cast<std::size_t>(count)) << "the proof is in the same record as the certificate";
            (void)::send(service.get(), bytes.data(), end, 0);
            return;
        }
    }

    Session& session() { return *made; }

    host::remote::Context context;
    host::io::FileDescriptor socket;        // of the session
    host::io::FileDescriptor line, service; // for an unfinished proof: the peer of `socket`, and the connection
    AnyKey anyKey;
    std::unique_ptr<Session> made;
};

RemotePeer::RemotePeer(const std::string& address, Fault fault) : state_(std::make_unique<State>(address, fault)) {
    if (fault == Fault::unfinishedProof)
        state_->showCertificateOnly();
    else
        accepted_ = state_->finish([&] { return state_->session().handshake(); });
}

RemotePeer::~RemotePeer() = default;

bool RemotePeer::send(const std::string& bytes) {
    for (std::size_t sent = 0, count = 0; sent < bytes.size(); sent += count)
        if (!state_->finish([&] { return state_->session().write(bytes.data() + sent, bytes.size() - sent, count); }))
            return false;
    return true;
}

void RemotePeer::sendKeyUpdate() { state_->session().probe(); }

std::string RemotePeer::receive(std::size_t size) {
    std::string bytes(size, '\0');
    std::size_t received = 0;
    for (std::size_t count = 0; received < size; received += count)
        if (!state_->finish([&] { return state_->session().read(bytes.data() + received, size - received, count); }))
            break;
    bytes.resize(received);
    return bytes;
}

bool RemotePeer::isEnded() {
    char byte[4096];
    std::size_t count;
    while (state_->finish([&] { return state_->session().read(byte, sizeof byte, count); })) {
    }
    pollfd item{state_->socket.get(), POLLIN, 0};
    return ::poll(&item, 1, 10000) > 0;
}

int RemotePeer::socket() const { return state_->socket.get(); }

} // namespace support

#else
#include <stdexcept>

struct support::RemotePeer::State {};
support::RemotePeer::RemotePeer(const std::string&, Fault) {
    throw std::logic_error("the platform was built without its transport between hosts");
}
support::RemotePeer::~RemotePeer() = default;
bool support::RemotePeer::send(const std::string&) { return false; }
void support::RemotePeer::sendKeyUpdate() {}
std::string support::RemotePeer::receive(std::size_t) { return {}; }
bool support::RemotePeer::isEnded() { return true; }
int support::RemotePeer::socket() const { return -1; }
#endif
