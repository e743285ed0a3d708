#include "tls.h"

#include "keys.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <new>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/x509.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>

namespace host::remote {
namespace {

// The library's own limit is 100 KiB; a certificate with nothing but a key has some 250 bytes.
constexpr long longestCertificate = 2048;
// The library reports an alert of the peer as an error with this number plus the alert's.
constexpr int firstAlertFault = SSL_AD_REASON_OFFSET;

// Results of the certificate check. The library sends each as an alert, from which the peer learns the reason. It sends
// these alerts in no other case, because it checks no certificates itself here.
constexpr int unknownKey = X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT;
constexpr int unknownKeyAlert = SSL_AD_UNKNOWN_CA;
constexpr int tooMany = X509_V_ERR_CERT_REVOKED;
constexpr int tooManyAlert = SSL_AD_CERTIFICATE_REVOKED;
constexpr int outOfMemory = X509_V_ERR_OUT_OF_MEM;

// The library looks for the reason of a failure in the thread's error queue, where earlier errors may remain. Clearing
// the queue resets every entry even when all are empty, which they are for nearly every record; hence the check.
void forgetEarlierErrors() noexcept {
    if (ERR_peek_error() != 0) ERR_clear_error();
}

using Certificate = std::unique_ptr<X509, Releaser<X509_free>>;

void require(bool good, const char* what) {
    if (!good) throw std::runtime_error(std::string("connections to other hosts: ") + what + " failed");
}

// Valid forever, because the clocks of two hosts may differ by years: only the key counts.
Certificate certificateWith(EVP_PKEY* key) {
    Certificate made(X509_new());
    require(made && X509_set_version(made.get(), X509_VERSION_3) == 1 &&
                ASN1_INTEGER_set(X509_get_serialNumber(made.get()), 1) == 1 &&
                ASN1_TIME_set_string_X509(X509_getm_notBefore(made.get()), "19700101000000Z") == 1 &&
                ASN1_TIME_set_string_X509(X509_getm_notAfter(made.get()), "99991231235959Z") == 1 &&
                X509_set_pubkey(made.get(), key) == 1 && X509_sign(made.get(), key, nullptr) > 0,
            "making a certificate");
    return made;
}

// Replaces the library's check, which would look for authorities. Whatever this returns, the handshake fails unless the
// peer has the secret key.
int checkCertificate(X509_STORE_CTX* store, void*) noexcept {
    int result = unknownKey;
    try {
        const auto* ssl =
            static_cast<const SSL*>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
        const X509* const certificate = X509_STORE_CTX_get0_cert(store);
        const std::string key = certificate ? publicTextOf(X509_get0_pubkey(certificate)) : std::string();
        if (!key.empty()) {
            const auto answer = static_cast<KeyCheck*>(SSL_get_app_data(ssl))->check(key);
            if (answer == KeyCheck::Answer::accepted) result = X509_V_OK;
            if (answer == KeyCheck::Answer::tooMany) result = tooMany;
        }
    } catch (const std::exception&) {
        result = outOfMemory;
    }
    X509_STORE_CTX_set_error(store, result);
    return result == X509_V_OK;
}

} // namespace

Context makeContext(const KeyPair& keys) {
    // The system's configuration file is not used: all peers must have the same settings.
    OPENSSL_init_ssl(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
    const Key key = secretKeyOf(keys.secretKey);
    require(key != nullptr, "reading the key");
    Context context(SSL_CTX_new(TLS_method()));
    require(context && SSL_CTX_set_min_proto_version(context.get(), TLS1_3_VERSION) == 1 &&
                SSL_CTX_set1_groups_list(context.get(), "X25519") == 1 &&
                SSL_CTX_set1_sigalgs_list(context.get(), "ed25519") == 1 &&
                SSL_CTX_use_certificate(context.get(), certificateWith(key.get()).get()) == 1 &&
                SSL_CTX_use_PrivateKey(context.get(), key.get()) == 1 && SSL_CTX_set_num_tickets(context.get(), 0) == 1,
            "preparing TLS");
    SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
    SSL_CTX_set_max_cert_list(context.get(), longestCertificate);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    SSL_CTX_set_cert_verify_callback(context.get(), &checkCertificate, nullptr);
    // read then also returns after records without data, so that a peer cannot keep it busy with them.
    SSL_CTX_clear_mode(context.get(), SSL_MODE_AUTO_RETRY);
    SSL_CTX_set_mode(context.get(), SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    return context;
}

Session::Session(SSL_CTX& context, int socket, bool serving, KeyCheck& check) : ssl_(SSL_new(&context)) {
    wire_.socket = socket;
    BIO* const wire = ssl_ ? makeWireEnd(wire_) : nullptr;
    if (!wire) throw std::bad_alloc();
    SSL_set_bio(ssl_.get(), wire, wire);
    if (SSL_set_app_data(ssl_.get(), &check) != 1) throw std::bad_alloc();
    if (serving)
        SSL_set_accept_state(ssl_.get());
    else
        SSL_set_connect_state(ssl_.get());
}

// With the library's own socket BIO, a broken connection would raise SIGPIPE.
BIO* Session::makeWireEnd(Wire& wire) {
    static BIO_METHOD* const method = [] {
        BIO_METHOD* made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "socket without signals");
        if (!made) throw std::bad_alloc(); // the next call tries again
        BIO_meth_set_read(made, &Session::readWire);
        BIO_meth_set_write(made, &Session::writeWire);
        BIO_meth_set_ctrl(made, [](BIO*, int command, long, void*) { return command == BIO_CTRL_FLUSH ? 1L : 0L; });
        return made;
    }();
    BIO* const bio = BIO_new(method);
    if (!bio) return nullptr;
    BIO_set_data(bio, &wire);
    BIO_set_init(bio, 1);
    return bio;
}

int Session::readWire(BIO* bio, char* room, int size) {
    Wire& wire = *static_cast<Wire*>(BIO_get_data(bio));
    BIO_clear_retry_flags(bio);
    const std::size_t count = std::min(static_cast<std::size_t>(size), wire.last - wire.first);
    if (count == 0 && !wire.ended && wire.readError == 0) BIO_set_retry_read(bio);
    if (count == 0) return wire.ended ? 0 : -1;
    std::memcpy(room, wire.room.data() + wire.first, count);
    wire.first += count;
    return static_cast<int>(count);
}

void Session::arrived(std::size_t count, int error) noexcept {
    wire_.first = 0;
    wire_.last = count;
    wire_.readError = error;
    wire_.ended = count == 0 && error == 0;
}

int Session::writeWire(BIO* bio, const char* data, int size) {
    Wire& wire = *static_cast<Wire*>(BIO_get_data(bio));
    BIO_clear_retry_flags(bio);
    const ssize_t count = ::send(wire.socket, data, static_cast<std::size_t>(size), MSG_DONTWAIT | MSG_NOSIGNAL);
    // The system, not only the socket, may be temporarily out of buffers.
    if (count < 0 && (errno == EAGAIN || errno == EINTR || errno == ENOBUFS || errno == ENOMEM))
        BIO_set_retry_write(bio);
    else
        wire.sendError = count < 0 ? errno : 0;
    return static_cast<int>(count);
}

Session::Progress Session::progressAfter(int result) noexcept {
    switch (SSL_get_error(ssl_.get(), result)) {
        case SSL_ERROR_NONE:
            return Progress::done;
        case SSL_ERROR_WANT_READ:
            return wire_.first == wire_.last ? Progress::needsInput : Progress::again;
        case SSL_ERROR_WANT_WRITE:
            return Progress::needsRoom;
        default:
            fault_ = ERR_peek_last_error();
            return Progress::over;
    }
}

Session::Progress Session::handshake() noexcept {
    forgetEarlierErrors();
    const int result = SSL_do_handshake(ssl_.get());
    if (result != 1 || SSL_is_server(ssl_.get())) return progressAfter(result);
    char first;
    return progressAfter(SSL_peek(ssl_.get(), &first, 1));
}

Session::Progress Session::read(char* room, std::size_t size, std::size_t& count) noexcept {
    forgetEarlierErrors();
    count = 0;
    return progressAfter(SSL_read_ex(ssl_.get(), room, size, &count));
}

Session::Progress Session::write(const char* data, std::size_t size, std::size_t& count) noexcept {
    forgetEarlierErrors();
    count = 0;
    return progressAfter(SSL_write_ex(ssl_.get(), data, size, &count));
}

void Session::probe() noexcept {
    forgetEarlierErrors();
    // Not while the socket's buffer is full: the pending data is acknowledged as well, and the library would stop
    // reading.
    pollfd item{wire_.socket, POLLOUT, 0};
    if (::poll(&item, 1, 0) != 1) return;
    if (SSL_key_update(ssl_.get(), SSL_KEY_UPDATE_NOT_REQUESTED) == 1) (void)SSL_do_handshake(ssl_.get());
}

void Session::end() noexcept {
    forgetEarlierErrors();
    (void)SSL_shutdown(ssl_.get());
    wire_.socket = -1;
}

const char* Session::reason() const noexcept {
    if (ERR_GET_LIB(fault_) == ERR_LIB_SSL && ERR_GET_REASON(fault_) == firstAlertFault + unknownKeyAlert)
        return "it rejects this machine's key";
    if (ERR_GET_LIB(fault_) == ERR_LIB_SSL && ERR_GET_REASON(fault_) == firstAlertFault + tooManyAlert)
        return "it accepts no more connections with this machine's key";
    if (const char* const text = fault_ != 0 ? ERR_reason_error_string(fault_) : nullptr) return text;
    if (const int error = wire_.readError != 0 ? wire_.readError : wire_.sendError; error != 0)
        return strerrordesc_np(error);
    return isFault() ? "out of memory" : "End of file";
}

bool Session::isFault() const noexcept {
    const bool isLibrarys = ERR_GET_LIB(fault_) == ERR_LIB_SSL && ERR_GET_REASON(fault_) < firstAlertFault;
    return isLibrarys || (!wire_.ended && wire_.readError == 0 && wire_.sendError == 0 &&
                          (SSL_get_shutdown(ssl_.get()) & SSL_RECEIVED_SHUTDOWN) == 0);
}

} // namespace host::remote
