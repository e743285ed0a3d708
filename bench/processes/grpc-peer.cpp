// gRPC over a local socket.
#include "common/interleaved.h"
#include "peer-process.h"
#include "timed-event.h"
#include "transport.h"

#include <grpcpp/grpcpp.h>
#include <peer.grpc.pb.h>
#include <stdexcept>

namespace bench {
namespace {

class Service final : public rpc::Peer::Service {
    grpc::Status Call(grpc::ServerContext*, const rpc::Blob* request, rpc::Blob* reply) override {
        if (request->data().size() != load().requestBytes) return {grpc::StatusCode::INVALID_ARGUMENT, "request"};
        reply->set_data(answer_);
        return grpc::Status::OK;
    }
    const std::string answer_ = std::string(load().answerBytes, 'a');
};

class GrpcPeer final : public Transport {
public:
    explicit GrpcPeer(const std::string& folder) : address_("unix:" + folder + "/grpc.sock") {}

    std::string name() const override { return "gRPC"; }
    void connect() override {
        stub_ = rpc::Peer::NewStub(grpc::CreateChannel(address_, grpc::InsecureChannelCredentials()));
    }
    double roundTrip() override {
        const auto start = Clock::now();
        grpc::ClientContext context;
        rpc::Blob request, answer;
        request.set_data(request_);
        const grpc::Status status = stub_->Call(&context, request, &answer);
        if (!status.ok() || answer.data().size() != load().answerBytes)
            throw std::runtime_error("gRPC: " + status.error_message());
        return nanoseconds(Clock::now() - start);
    }

private:
    [[noreturn]] void serve(const std::function<void()>& ready) {
        Service service;
        grpc::ServerBuilder builder;
        builder.AddListeningPort(address_, grpc::InsecureServerCredentials());
        builder.RegisterService(&service);
        const auto server = builder.BuildAndStart();
        if (!server) throw std::runtime_error("gRPC: no server at " + address_);
        ready();
        for (;;) server->Wait();
    }

    const std::string address_;
    PeerProcess server_{[this](const auto& ready) { serve(ready); }};
    std::unique_ptr<rpc::Peer::Stub> stub_;
    const std::string request_ = std::string(load().requestBytes, 'q');
};

} // namespace

std::unique_ptr<Transport> grpcPeer(const std::string& folder) { return std::make_unique<GrpcPeer>(folder); }

} // namespace bench
