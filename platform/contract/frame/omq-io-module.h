// The message-queue IO module of a marshalling member: its channel to the one connection to its service.
#pragma once

#include <frame/message.h>
#include <vdl/endian-table.h>

#include <boost/function.hpp>

namespace frame {

// Handles one incoming message. payload: the flat top-level form with the layout of the registered table, validated and
// in this machine's byte order. The framework owns it; it is invalid once the handler returns. Called on the module's
// receiving thread, one message at a time, in order of arrival. The result is ignored; an exception is logged and
// ignored.
using MessageHandler = int (*)(const MsgMeta& meta, const TransportInfo& transport, const void* payload, void* context);

class OmqIOModule {
public:
    virtual ~OmqIOModule() = default;

    // Registers the handler for messages with this meta: 0, or -17 when there is one already. Call it before the member
    // starts.
    virtual int registerMessageHandler(const MsgMeta& meta, MessageHandler handler, void* context,
                                       const vdl::EndianTable& table) = 0;

    // Sends the flat form at payload, described by table. Never blocks: the message is written at once if the socket
    // accepts it, otherwise queued, otherwise refused. transport null: to the service (on the service's side: to all
    // clients); otherwise to that connection. completed is called exactly once in every case, when meta and payload are
    // no longer needed, possibly before asyncSend returns. From any thread.
    // Returns 0, or negative (logged and counted): -11 queue full, -90 message too large, -22 payload cannot be
    // marshalled, -107 no such connection, -108 module stopped.
    virtual int asyncSend(const MsgIds& ids, const MsgMeta& meta, const TransportInfo* transport,
                          const vdl::EndianTable& table, const void* payload,
                          const boost::function<void()>& completed) = 0;
};

} // namespace frame

// Registers the handler of an incoming message; see OmqIOModule::registerMessageHandler.
int frameOmqIOServiceRegisterMessageHandlerFunction(frame::OmqIOModule* module, const frame::MsgMeta& meta,
                                                    frame::MessageHandler handler, void* context,
                                                    const vdl::EndianTable& table);
