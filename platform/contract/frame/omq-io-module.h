// The message-queue IO module as a marshalling member sees it: its channel to the one connection to its service.
#pragma once

#include <frame/message.h>
#include <vdl/endian-table.h>

#include <boost/function.hpp>

namespace frame {

// Takes one incoming message. payload: the flat top-level form, laid out as the table of the registration says, valid
// and in this machine's byte order, owned by the framework and gone when the handler returns. Called on the module's
// receiving thread, one at a time, in order of arrival. The result is ignored; an exception is logged and swallowed.
using MessageHandler = int (*)(const MsgMeta& meta, const TransportInfo& transport, const void* payload, void* context);

class OmqIOModule {
public:
    virtual ~OmqIOModule() = default;

    // Binds messages of this meta to a handler: 0, or -17 when the meta has one. Before the member starts.
    virtual int registerMessageHandler(const MsgMeta& meta, MessageHandler handler, void* context,
                                       const vdl::EndianTable& table) = 0;

    // Sends the flat form at payload, described by table, without ever waiting: it is written at once while the socket
    // takes it, else queued, else refused. transport null: to the service (on the service's side: to every client);
    // otherwise to that connection. completed runs exactly once, whatever happens, when meta and payload are no longer
    // needed; it may run before asyncSend returns. From any thread.
    // Returns 0, or negative (logged and counted): -11 queue full, -90 message too large, -22 payload cannot be
    // marshalled, -107 no such connection, -108 module stopped.
    virtual int asyncSend(const MsgIds& ids, const MsgMeta& meta, const TransportInfo* transport,
                          const vdl::EndianTable& table, const void* payload,
                          const boost::function<void()>& completed) = 0;
};

} // namespace frame

// Binds an incoming message to a handler; see OmqIOModule::registerMessageHandler.
int frameOmqIOServiceRegisterMessageHandlerFunction(frame::OmqIOModule* module, const frame::MsgMeta& meta,
                                                    frame::MessageHandler handler, void* context,
                                                    const vdl::EndianTable& table);
