// The hello that each peer of a connection sends first, and the check of the other's hello.
//
// A hello, with words in the sender's byte order: magic "tvsq", byte-order mark, protocol version, size of the whole
// hello, length of the service's name, number of messages, fingerprint of the message set (u64); the name; then for
// each message instance, interface code, message id, flag and the fingerprint of its table (u64).
#pragma once

#include <frame/message-set.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace host::io {

inline constexpr std::size_t maximumHelloBytes = 64 * 1024;
inline constexpr std::uint32_t protocolVersion = 1;

class Handshake {
public:
    enum class Verdict { Incomplete, Accepted, Refused };
    struct Judgement {
        Verdict verdict;
        std::size_t size = 0; // of the hello, when accepted
        bool swap = false;    // whether the peer's byte order differs, when accepted
        std::string reason{}; // what differs, when refused
    };

    // serving: whether this side offers the service. Throws std::invalid_argument when the set does not fit into a
    // hello.
    Handshake(const std::string& service, const frame::MessageSet& messages, bool serving);

    const std::string& hello() const { return hello_; }
    // Checks the peer's bytes so far; invalid data is refused as early as possible.
    Judgement judge(const char* data, std::size_t size) const;

private:
    struct Message {
        frame::MsgMeta meta;
        std::uint64_t layout;
        std::string name;
    };
    std::string difference(const std::vector<Message>& theirs) const;

    std::string service_;
    bool serving_;
    std::vector<Message> messages_;
    std::uint64_t setFingerprint_ = 0;
    std::string hello_;
};

} // namespace host::io
