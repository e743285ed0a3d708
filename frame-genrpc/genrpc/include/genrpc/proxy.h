// The client side of a service: the common base of the two proxies.
#pragma once

#include <frame/abstract-marshalling-impl.h>
#include <genrpc/client-list.h>
#include <genrpc/log.h>
#include <genrpc/message.h>
#include <genrpc/send.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <thread-safety/mutex.h>
#include <tuple>

namespace genrpc {

// Registers a proxy's handler for a notification, with the proxy as context. The result is ignored.
template <class Message, class Proxy> void bind(Proxy& proxy, frame::MessageHandler handler) {
    frameOmqIOServiceRegisterMessageHandlerFunction(proxy.getOmqIOModule(), Message::meta, handler, &proxy,
                                                    *Message::table());
}

// The initial size of a message's memory and of the connection's send buffer.
inline constexpr std::size_t sendBufferBytes = 16384;

struct ProxySettings {
    const char* serviceName;
    frame::MessageSet messages;
    LogModule module;
    const char* file; // the file that log lines name: the source file of the service's own proxy
    // Whether the destructor unregisters the interface. Otherwise it stays registered: whoever has looked it up keeps
    // the pointer until the process ends anyway.
    bool takesInterfaceBack;
};

// A framework member that registers the service's interface and keeps its clients. A derived class adds a sender for
// each request and a handler for each notification, bound in registerMessageHandlers.
template <class ServiceInterface, class ClientInterface>
class Proxy : public frame::AbstractMarshallingImpl, public ServiceInterface {
public:
    explicit Proxy(const ProxySettings& settings)
        : frame::AbstractMarshallingImpl(CouplingMode::Default), settings_(settings) {
        GENRPC_LOG_AT(here(), settings_.module, vdlDebugTrace, "Called.\n");
        setServiceName(settings_.serviceName);
        setSendBufferSize(sendBufferBytes);
        setMessageSet(settings_.messages);
        GENRPC_LOG_AT(here(), settings_.module, vdlDebugProgress, "the buffer size for %s is %d.\n",
                      settings_.serviceName, static_cast<int>(sendBufferBytes));
    }

    ~Proxy() override {
        GENRPC_LOG_AT(here(), settings_.module, vdlDebugTrace, "Called.\n");
        if (settings_.takesInterfaceBack) unregisterInterface(static_cast<ServiceInterface*>(this));
        for (auto& client : clients) client.reset();
    }

    int performSetupDone() override {
        GENRPC_LOG_AT(here(), settings_.module, vdlDebugTrace, "Called.\n");
        int result = frame::AbstractMarshallingImpl::performSetupDone();
        if (result < 0) {
            GENRPC_LOG_AT(here(), settings_.module, vdlDebugFailure, "Parent class performSetupDone() returned %d.\n",
                          result);
            return result;
        }
        result = registerInterface(static_cast<ServiceInterface*>(this), ServiceInterface::interfaceKey);
        if (result < 0) {
            GENRPC_LOG_AT(here(), settings_.module, vdlDebugFailure, "Unable to register interface: %d.\n", result);
            return result;
        }
        return 0;
    }

    int performStarting() override {
        GENRPC_LOG_AT(here(), settings_.module, vdlDebugTrace, "Called.\n");
        const int result = frame::AbstractMarshallingImpl::performStarting();
        if (result < 0) {
            GENRPC_LOG_AT(here(), settings_.module, vdlDebugFailure, "Parent class performStarting() returned %d.\n",
                          result);
            return result;
        }
        return 0;
    }

    int performStopping() override {
        GENRPC_LOG_AT(here(), settings_.module, vdlDebugTrace, "Called.\n");
        const int result = frame::AbstractMarshallingImpl::performStopping();
        if (result < 0) {
            GENRPC_LOG_AT(here(), settings_.module, vdlDebugFailure, "Parent class performStopping() returned %d.\n",
                          result);
            return result;
        }
        return 0;
    }

    int addClient(boost::shared_ptr<ClientInterface> client) override {
        ltGuard guard(getMutex());
        return genrpc::addClient(clients, client, -17, {settings_.module, here()});
    }

    int removeClient(boost::shared_ptr<ClientInterface> client) override {
        ltGuard guard(getMutex());
        return genrpc::removeClient(clients, client, -2, {settings_.module, here()});
    }

protected:
    // Sends a request with the caller's ids but without its transport. Returns 0 whatever happens to the message:
    // answers arrive as notifications, and whoever waits for an answer must have a timeout.
    template <class Message, class... Args> int send(const frame::MsgIds& ids, const Args&... args) {
        genrpc::send<Message>(Port{*this}, {.ids = ids, .transport = nullptr, .firstBytes = getSendBufferSize()},
                              args...);
        return 0;
    }

    // Calls every client that was registered when the message arrived, in order and without the mutex, so that a client
    // may register or remove clients or send from inside its notification. Each client gets its own arguments,
    // converted from the flat message for it, and its own copy of the empty ids.
    template <class Message, class Method>
    void deliver(Method method, const frame::TransportInfo& transport, const void* payload) {
        const auto copy = [&] {
            ltGuard guard(getMutex());
            return clients;
        }();
        for (const auto& client : copy) {
            frame::MsgIds ids = frame::MsgIds::none;
            std::apply([&](const auto&... args) { ((*client).*method)(ids, transport, args...); },
                       Message::Body::read(payload));
        }
    }

    ClientList<ClientInterface> clients TVSA_GUARDED_BY(getMutex());

private:
    struct Port {
        Proxy& proxy;
        int asyncSend(const frame::MsgIds& ids, const frame::MsgMeta& meta, const frame::TransportInfo* transport,
                      const vdl::EndianTable& table, const void* payload, const boost::function<void()>& completed) {
            return proxy.frame::AbstractMarshallingImpl::asyncSend(proxy.getOmqIOModule(), ids, meta, transport, table,
                                                                   payload, completed);
        }
    };

    // The source position of the line that is being written.
    Here here(int line = __builtin_LINE(), const char* function = __builtin_FUNCTION()) const {
        return {settings_.file, line, function};
    }

    const ProxySettings settings_;
};

// Creates members in a null-terminated array; the caller owns all of it. Throws std::bad_alloc without leaks.
template <class... Members> void** arrayOf() {
    std::unique_ptr<void*, decltype(&std::free)> array(
        static_cast<void**>(std::calloc(sizeof...(Members) + 1, sizeof(void*))), std::free);
    if (!array) throw std::bad_alloc();
    std::tuple<std::unique_ptr<Members>...> members{std::make_unique<Members>()...};
    void** place = array.get();
    std::apply(
        [&](auto&... member) {
            ((*place++ = static_cast<void*>(static_cast<frame::AbstractProcessMember*>(member.release()))), ...);
        },
        members);
    return array.release();
}

} // namespace genrpc
