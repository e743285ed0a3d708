// The base of a service proxy: a member with a connection to a service process.
#pragma once

#include <frame/abstract-application.h>
#include <frame/message-set.h>
#include <frame/omq-io-module.h>
#include <lt/guard.h>

#include <cstddef>
#include <string>
#include <thread-safety/mutex.h>

namespace frame {

// Events addressed to a marshalling member from the framework's event queue.
class EventDelivery {
public:
    virtual ~EventDelivery() = default;
    virtual void deliverEvents() = 0;
};

// Notifications about a member's connection. Called on the module's receiving thread.
class IOConnectionListener {
public:
    virtual ~IOConnectionListener() = default;
    virtual void onIOConnectionConnected() = 0;
    virtual void onIOConnectionConnectionFailed() = 0; // one attempt failed; the module keeps trying
    virtual void onIOConnectionDisconnected() = 0;
};

// Between set-up and start the framework gives a marshalling member its IO module and calls registerMessageHandlers.
class AbstractMarshallingImpl : public AbstractApplication, public EventDelivery, public IOConnectionListener {
public:
    enum class CouplingMode { Default = 0 };

    explicit AbstractMarshallingImpl(CouplingMode mode);
    ~AbstractMarshallingImpl() override;

    // Called by the framework.
    void setOmqIOModule(OmqIOModule* module) { module_ = module; }
    virtual int registerMessageHandlers();
    void deliverEvents() override;
    void onIOConnectionConnected() override;
    void onIOConnectionConnectionFailed() override;
    void onIOConnectionDisconnected() override;

    OmqIOModule* getOmqIOModule() const { return module_; }
    const std::string& getServiceName() const { return serviceName_; }
    std::size_t getSendBufferSize() const { return sendBufferSize_; }
    const MessageSet& getMessageSet() const { return messageSet_; }
    // The mutex that guards what a proxy and its message handlers share.
    ltMutex& getMutex() TVSA_RETURN_CAPABILITY(mutex_) { return mutex_; }

    // Sends one message through module; see OmqIOModule::asyncSend. Without a module the message is refused (-107);
    // completed is called in this case, too.
    int asyncSend(OmqIOModule* module, const MsgIds& ids, const MsgMeta& meta, const TransportInfo* transport,
                  const vdl::EndianTable& table, const void* payload, const boost::function<void()>& completed);

protected:
    int performSetupDone() override;
    int performStarting() override;
    int performStopping() override;

    // Called by a proxy's constructor.
    void setServiceName(const std::string& name) { serviceName_ = name; }  // the service to connect to
    void setSendBufferSize(std::size_t bytes) { sendBufferSize_ = bytes; } // initial size, not a limit
    void setMessageSet(const MessageSet& set) { messageSet_ = set; }

private:
    OmqIOModule* module_ = nullptr;
    std::string serviceName_;
    std::size_t sendBufferSize_ = 0;
    MessageSet messageSet_;
    ltMutex mutex_;
};

} // namespace frame
