// An application that writes a byte to the descriptor in BENCH_READY when the adapter serves it.
#include <frame/abstract-application.h>
#include <frame/process.h>
#include <tvservice-adapter/model-tvservice-adapter.h>

#include <cstdlib>
#include <unistd.h>

namespace {

class ReadyApplication : public frame::AbstractApplication {
    int performStarting() override {
        boost::shared_ptr<frame::Interface> adapter;
        if (const int result = frame::Process::getInstance()->getInterfaceReference(
                adapter, tvservice::ModelTvServiceAdapter::interfaceKey))
            return result;
        const char* descriptor = std::getenv("BENCH_READY");
        return descriptor != nullptr && write(std::atoi(descriptor), "r", 1) == 1 ? 0 : -1;
    }
};

} // namespace

extern "C" __attribute__((visibility("default"))) void** frameCreateApplicationArray() {
    void** members = static_cast<void**>(std::calloc(2, sizeof(void*)));
    members[0] = static_cast<frame::AbstractProcessMember*>(new ReadyApplication);
    return members;
}
