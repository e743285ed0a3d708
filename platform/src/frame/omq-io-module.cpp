#include "log/log.h"

#include <frame/omq-io-module.h>

#include <cerrno>

int frameOmqIOServiceRegisterMessageHandlerFunction(frame::OmqIOModule* module, const frame::MsgMeta& meta,
                                                    frame::MessageHandler handler, void* context,
                                                    const vdl::EndianTable& table) {
    if (module) return module->registerMessageHandler(meta, handler, context, table);
    HOST_LOG(frame, vdlDebugFailure, "handler of message %u.%u.%u not registered: there is no IO module\n",
             meta.instance, meta.interfaceCode, meta.messageId);
    return -ENOTCONN;
}
