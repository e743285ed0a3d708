// For tests of the framework: members that record the calls they receive, and tests in their own processes.
#pragma once

#include <frame/abstract-marshalling-impl.h>
#include <frame/process.h>
#include <host/receiver.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace frame_test {

using Trace = std::vector<std::string>;

// Outlives the members, which the process deletes.
inline Trace& trace() {
    static Trace* const lines = new Trace;
    return *lines;
}

inline Trace takeTrace() { return std::exchange(trace(), {}); }

// Records its calls. Fails at the named step.
template <class Base> class Recording : public Base {
public:
    template <class... Arguments>
    explicit Recording(std::string name, std::string failing = {}, Arguments... arguments)
        : Base(arguments...), name_(std::move(name)), failing_(std::move(failing)) {}
    ~Recording() override {
        note("destroy");
        if (printsDestruction) std::fprintf(stderr, "destroy %s\n", name_.c_str());
    }

    std::function<void()> onStart, onStop;
    bool printsDestruction = false;

    using Base::registerInterface;
    using Base::unregisterInterface;

protected:
    int performSetupDone() override {
        if (Base::performSetupDone() != 0) return -107;
        registerInterface(this, name_);
        return note("setupDone");
    }
    int performStarting() override {
        if (onStart) onStart();
        return note("start");
    }
    int performStopping() override {
        if (onStop) onStop();
        return note("stop");
    }
    int note(const std::string& step) {
        trace().push_back(step + " " + name_);
        return step == failing_ ? -5 : 0;
    }

    std::string name_, failing_;
};

using Member = Recording<frame::AbstractProcessMember>;

// A proxy of a service that does not exist.
class Proxy : public Recording<frame::AbstractMarshallingImpl> {
public:
    explicit Proxy(std::string name, std::string failing = {}, const std::string& service = "frame-test")
        : Recording(std::move(name), std::move(failing), CouplingMode::Default) {
        setServiceName(service);
        setSendBufferSize(1024);
    }
    void deliverEvents() override {
        note("deliver");
        Recording::deliverEvents();
    }

private:
    int registerMessageHandlers() override {
        return getOmqIOModule() ? note("handlers") : note("handlers without module");
    }
};

// The members that the next makeArray returns.
inline std::vector<frame::AbstractProcessMember*>& nextMembers() {
    static std::vector<frame::AbstractProcessMember*> members;
    return members;
}

inline void** makeArray() {
    const auto members = std::exchange(nextMembers(), {});
    auto** array = static_cast<void**>(std::calloc(members.size() + 1, sizeof(void*)));
    std::copy(members.begin(), members.end(), array);
    return array;
}

inline int startMembers(std::vector<frame::AbstractProcessMember*> members) {
    nextMembers() = std::move(members);
    return frame::Process::getInstance()->startAppMembersSync(makeArray);
}

inline bool isRegistered(const std::string& key) {
    boost::shared_ptr<frame::Interface> reference;
    return frame::Process::getInstance()->getInterfaceReference(reference, key) == 0;
}

// Runs body in its own process, because the framework runs once per process. Expects that the checks in body hold, that
// the process exits by itself, and that its error output contains `output`.
template <class Body> void inOwnProcess(Body body, const std::string& output = {}) {
    EXPECT_EXIT(
        {
            setenv("TVSA_ENDPOINT_FRAME-TEST", "/nonexistent/frame-test.sock", 1);
            takeTrace();
            body();
            std::exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), testing::HasSubstr(output));
}

// Runs the framework. onReady runs on the framework's thread.
inline int run(std::function<int()> onReady) {
    return host::runProcess([](void* context) { return (*static_cast<std::function<int()>*>(context))(); }, &onReady);
}

} // namespace frame_test
