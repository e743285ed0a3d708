// The transport between processes of one machine: Unix stream sockets.
#pragma once

#include "base/file-descriptor.h"
#include "sockets/acceptor.h"
#include "sockets/local-socket.h"
#include "transport/transport.h"

#include <boost/asio/io_context.hpp>
#include <string>

namespace host::io {

// A stream over a connected non-blocking socket. Throws std::exception.
std::unique_ptr<Stream> streamOver(boost::asio::io_context& io, FileDescriptor socket);

class LocalConnector final : public Connector {
public:
    LocalConnector(boost::asio::io_context& io, const std::string& path) : io_(io), path_(path) {}

    const std::string& address() const override { return path_; }
    void connect(const Answer& answer) override;

private:
    boost::asio::io_context& io_;
    const std::string path_;
};

class LocalListener final : public Listener {
public:
    // Throws std::runtime_error when another process serves the path or it cannot be used.
    LocalListener(boost::asio::io_context& io, const std::string& service, const std::string& path);
    void listen(ListenerUser& user) noexcept override;

private:
    void take(FileDescriptor connection) noexcept;

    boost::asio::io_context& io_;
    const ListeningSocket socket_;
    Acceptor acceptor_;
    ListenerUser* user_ = nullptr;
};

} // namespace host::io
