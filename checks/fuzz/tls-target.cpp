// What a peer on another host says before it has proven its key, and in a stream after that.
#include "remote/tls-stream.h"
#include "remote/tls.h"
#include "target.h"

#include <host/keys.h>

#include <algorithm>
#include <array>
#include <boost/asio/io_context.hpp>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace fuzz {
namespace {

using namespace host::remote;
using host::io::FileDescriptor;
using Progress = Session::Progress;

const host::KeyPair& keys() {
    static const host::KeyPair pair = host::makeKeys();
    return pair;
}

const std::shared_ptr<Shared>& shared() {
    static const auto all = std::make_shared<Shared>(Shared{makeContext(keys()), std::chrono::milliseconds(60'000)});
    return all;
}

std::pair<FileDescriptor, FileDescriptor> socketPair() {
    int ends[2];
    expect(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0, "there are sockets");
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

// How many keys it was asked for.
struct AskedKeys : KeyCheck {
    Answer check(const std::string& key) override {
        ++asked;
        return key == keys().publicKey ? Answer::accepted : Answer::unknown;
    }
    int asked = 0;
};

// The service's end of a stream.
class Reader final : public host::io::StreamUser, public std::enable_shared_from_this<Reader> {
public:
    explicit Reader(std::unique_ptr<TlsStream> stream) : stream_(std::move(stream)) {}
    void read() { stream_->receive(room_.data(), room_.size(), shared_from_this()); }
    void onReceived(std::size_t count) override {
        received.append(room_.data(), count);
        read();
    }
    void onEnd(const std::string&) override { ++ends; }
    void onFault(const std::string&) override { ++faults; }
    void onWritable() override { // the client has proven its key
        std::error_code error;
        expect(stream_->send("", 1, error) == 1, "a new stream takes a byte");
        read();
    }
    TlsStream& stream() { return *stream_; }

    std::string received;
    int ends = 0, faults = 0;

private:
    const std::unique_ptr<TlsStream> stream_;
    std::array<char, 512> room_{};
};

// A client and a service's stream whose keys are proven.
class Conversation {
public:
    Conversation() : Conversation(socketPair()) {}
    ~Conversation() {
        reader_->stream().close();
        io_.restart();
        io_.poll(); // what was under way lets go of the reader
    }

    // Returns whether it can go on.
    bool run(Source& source) {
        while (!source.rest().empty() && !over_) step(source.byte(), source);
        if (over_ || spoiled_) {
            end();
            return false;
        }
        for (int turns = 0; reader_->received.size() < sent_.size() || !answered_.empty(); ++turns) {
            expect(turns < 100'000, "what is sent arrives");
            turn();
            hear(20'000);
        }
        expect(isSent(reader_->received), "what is received was sent");
        earlySent_ += reader_->received.size() - sent_.size();
        reader_->received.clear();
        sent_.clear();
        return true;
    }

private:
    explicit Conversation(std::pair<FileDescriptor, FileDescriptor> ends)
        : clientSocket_(std::move(ends.first)), client_(*shared()->tls, clientSocket_.get(), false, anyKey_) {
        static const auto known =
            std::make_shared<Keys>(Keys{{keys().publicKey, std::make_shared<const std::string>(keys().publicKey)}});
        auto stream = std::make_unique<TlsStream>(io_, shared(), known, true);
        stream->socket().assign(boost::asio::ip::tcp::v4(), ends.second.release());
        reader_ = std::make_shared<Reader>(std::move(stream));
        reader_->stream().authenticate(reader_);
        for (int turns = 0; client_.handshake() != Progress::done; ++turns) {
            expect(turns < 1000, "keys are proven");
            turn();
            take(clientSocket_.get(), client_);
        }
        expect(anyKey_.asked == 1, "the client has looked at the service's key");
        char first;
        std::size_t count;
        expect(client_.read(&first, 1, count) == Progress::done, "the client has heard that it is accepted");
    }

    void end() {
        client_.end();
        clientSocket_.reset();
        for (int turns = 0; reader_->ends + reader_->faults == 0; ++turns) {
            expect(turns < 100'000, "a stream ends when its peer does");
            turn();
        }
        expect(reader_->ends + reader_->faults == 1, "a stream ends once");
        expect(isSent(reader_->received), "what is received was sent");
        expect(spoiled_ || reader_->received.size() >= sent_.size(), "what was sent before the end is received");
        expect(spoiled_ || reader_->faults == 0, "a peer that keeps the rules is at no fault");
    }

    // Whether the text is the beginning of what was sent, and of what was refused after it.
    bool isSent(std::string_view text) const {
        return text.substr(0, sent_.size()) == std::string_view(sent_).substr(0, text.size()) &&
               unsent_.substr(earlySent_).starts_with(text.substr(std::min(text.size(), sent_.size())));
    }

    // What has arrived at a socket, if the session wants more.
    static void take(int socket, Session& session) {
        if (session.hasInput()) return;
        const ssize_t count = ::recv(socket, session.room(), Session::roomBytes, MSG_DONTWAIT);
        if (count >= 0 || errno != EAGAIN)
            session.arrived(count > 0 ? static_cast<std::size_t>(count) : 0, count < 0 ? errno : 0);
    }

    void turn() {
        io_.restart();
        io_.poll_one();
    }

    // A part of one long text, as making each anew would take longer than sending it.
    static std::string_view text(Source& source) {
        constexpr std::size_t longest = 20'000;
        static const std::string whole = [] {
            std::string made(longest + UINT8_MAX, '\0');
            for (std::size_t i = 0; i < made.size(); ++i) made[i] = static_cast<char>(i * 7 + i / 256);
            return made;
        }();
        const std::size_t size = source.number(2) % longest;
        return std::string_view(whole).substr(source.byte(), size);
    }

    // What to say next: what was refused before has to come first.
    static std::string_view next(std::string_view& refused, std::string_view text) {
        if (refused.empty()) refused = text;
        return refused;
    }

    void hear(std::size_t most) {
        std::string room(most, '\0');
        std::size_t count = 0;
        take(clientSocket_.get(), client_);
        if (client_.read(room.data(), room.size(), count) != Progress::done) return;
        const std::string coming = answered_ + std::string(unanswered_.substr(early_));
        expect(coming.compare(0, count, room, 0, count) == 0, "what is answered arrives");
        const std::size_t answered = std::min(count, answered_.size());
        answered_.erase(0, answered);
        early_ += count - answered;
    }

    void step(std::uint8_t what, Source& source) {
        std::size_t count = 0;
        // What ends a conversation is rare, so that most inputs leave it to the next one.
        constexpr std::uint8_t kinds = 5, pastTheSession = 253, ending = 254, breaking = 255;
        switch (what < pastTheSession ? what % kinds : what) {
            case 0: {
                const std::string_view said = next(unsent_, text(source));
                if (said.empty() || client_.write(said.data(), said.size(), count) != Progress::done) return;
                if (!spoiled_) sent_.append(said, earlySent_, count - earlySent_);
                unsent_ = {};
                earlySent_ = 0;
                return;
            }
            case 1:
                return client_.probe();
            case 2: {
                const std::string_view said = next(unanswered_, text(source));
                std::error_code error;
                if (!said.empty()) count = reader_->stream().send(said.data(), said.size(), error);
                if (count == 0) return;
                expect(count >= early_, "what has arrived was sent");
                answered_.append(said, early_, count - early_);
                unanswered_ = {};
                early_ = 0;
                return;
            }
            case 3:
                return hear(1 + source.number(2) % 20'000);
            case 4:
                return turn();
            case pastTheSession: {
                const Input bytes = source.upTo(source.byte() % 64);
                if (bytes.empty()) return;
                spoiled_ = true;
                (void)::send(clientSocket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
                return;
            }
            case ending:
                over_ = true;
                return;
            case breaking:
                spoiled_ = true; // what the peer says from now on is lost
                return reader_->stream().breakOff();
        }
    }

    AskedKeys anyKey_;
    boost::asio::io_context io_{1};
    FileDescriptor clientSocket_;
    Session client_;
    std::shared_ptr<Reader> reader_;
    std::string sent_, answered_;
    std::string_view unsent_, unanswered_; // refused when last tried
    // Of what was refused, the bytes that have arrived: the library sends a text of two records in one call or the
    // other, and counts them together.
    std::size_t early_ = 0, earlySent_ = 0;
    bool spoiled_ = false; // what is sent need not arrive
    bool over_ = false;
};

} // namespace

// The first byte chooses the side, the second how many bytes come at a time.
void tlsBefore(Input input) {
    Source source(input);
    const bool serving = (source.byte() & 1) != 0;
    const std::size_t chunk = std::size_t{1} + source.byte();
    const auto [ours, theirs] = socketPair();
    AskedKeys check;
    Session session(*shared()->tls, ours.get(), serving, check);
    Progress progress = session.handshake();
    const auto feed = [&](Input bytes) {
        std::copy(bytes.begin(), bytes.end(), session.room());
        session.arrived(bytes.size(), 0);
        for (int steps = 0; progress != Progress::over && (steps == 0 || progress != Progress::needsInput); ++steps) {
            expect(steps < 10'000, "a handshake asks for no more than there is");
            progress = session.handshake();
            expect(progress != Progress::done, "nobody gets through without a key");
            expect(progress != Progress::needsRoom, "a handshake says little to somebody without a key");
        }
    };
    while (progress != Progress::over && !source.rest().empty()) feed(source.upTo(chunk));
    if (progress != Progress::over) feed({});
    expect(progress == Progress::over, "a handshake ends with its peer");
    expect(*session.reason() != '\0', "an end has a reason");
}

// The input is what both sides do. A conversation serves many inputs, as proving the keys takes far longer than one.
void tlsInside(Input input) {
    static std::unique_ptr<Conversation> conversation;
    if (!conversation) conversation = std::make_unique<Conversation>();
    Source source(input);
    if (!conversation->run(source)) conversation.reset();
}

} // namespace fuzz
