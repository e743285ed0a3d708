// A TV service for a proxy in the same process that answers before the request returns. It does everything that the
// product and the platform do for a message, except for the socket.
#pragma once

#include <frame/omq-io-module.h>
#include <host/marshaller.h>
#include <tvservice/messages.h>
#include <vdl/flat.h>

#include <memory>
#include <vector>

namespace bench {

inline std::vector<tvservice::TvServiceInfo_t> answersTo(const std::vector<tvservice::TvServiceReq_t>& requests) {
    std::vector<tvservice::TvServiceInfo_t> infos;
    infos.reserve(requests.size());
    for (const auto& request : requests)
        infos.push_back({request.terminal, 0, request.uri, request.uuid, {}, request.reqId});
    return infos;
}

// For one thread at a time. Accepts only play requests.
class InstantService final : public frame::OmqIOModule {
public:
    int registerMessageHandler(const frame::MsgMeta& meta, frame::MessageHandler handler, void* context,
                               const vdl::EndianTable& table) override;
    int asyncSend(const frame::MsgIds& ids, const frame::MsgMeta& meta, const frame::TransportInfo* transport,
                  const vdl::EndianTable& table, const void* payload,
                  const boost::function<void()>& completed) override;

private:
    // Marshals a message, and returns it as its receiver gets it: validated, in flat memory.
    const char* delivered(const vdl::EndianTable& table, const void* payload);

    frame::MessageHandler handler_ = nullptr; // of answers
    void* context_ = nullptr;
    host::Bytes wire_;
    std::size_t capacity_ = 0;
    std::unique_ptr<char, decltype(&vdlFlatFree)> received_{nullptr, vdlFlatFree};
};

} // namespace bench
