#include "log/log.h"

#include <frame/abstract-marshalling-impl.h>

#include <cerrno>

namespace frame {

AbstractMarshallingImpl::AbstractMarshallingImpl(CouplingMode) {}

AbstractMarshallingImpl::~AbstractMarshallingImpl() = default;

int AbstractMarshallingImpl::registerMessageHandlers() { return 0; }

void AbstractMarshallingImpl::deliverEvents() { runEvents(); }

void AbstractMarshallingImpl::onIOConnectionConnected() {}

void AbstractMarshallingImpl::onIOConnectionConnectionFailed() {}

void AbstractMarshallingImpl::onIOConnectionDisconnected() {}

int AbstractMarshallingImpl::performSetupDone() { return AbstractApplication::performSetupDone(); }

int AbstractMarshallingImpl::performStarting() { return AbstractApplication::performStarting(); }

int AbstractMarshallingImpl::performStopping() { return AbstractApplication::performStopping(); }

int AbstractMarshallingImpl::asyncSend(OmqIOModule* module, const MsgIds& ids, const MsgMeta& meta,
                                       const TransportInfo* transport, const vdl::EndianTable& table,
                                       const void* payload, const boost::function<void()>& completed) {
    if (module) return module->asyncSend(ids, meta, transport, table, payload, completed);
    HOST_LOG(frame, vdlDebugFailure, "message %u.%u.%u to service \"%s\" not sent: there is no IO module\n",
             meta.instance, meta.interfaceCode, meta.messageId, serviceName_.c_str());
    if (completed) completed();
    return -ENOTCONN;
}

} // namespace frame
