// An IO module without a socket: it records the messages sent and the handlers bound.
#pragma once

#include "support/wire.h"

#include <frame/omq-io-module.h>

#include <string>
#include <vector>

namespace support {

class RecordingModule : public frame::OmqIOModule {
public:
    struct Sent {
        frame::MsgIds ids;
        frame::MsgMeta meta;
        bool hasTransport;
        const vdl::EndianTable* table;
        std::string wire;
    };
    struct Bound {
        frame::MsgMeta meta;
        frame::MessageHandler handler;
        void* context;
        const vdl::EndianTable* table;
    };

    // Proxies ignore the result.
    int registerMessageHandler(const frame::MsgMeta& meta, frame::MessageHandler handler, void* context,
                               const vdl::EndianTable& table) override {
        bound.push_back({meta, handler, context, &table});
        return -17;
    }
    int asyncSend(const frame::MsgIds& ids, const frame::MsgMeta& meta, const frame::TransportInfo* transport,
                  const vdl::EndianTable& table, const void* payload,
                  const boost::function<void()>& completed) override {
        const auto look = [this, ids, &meta, transport, &table, payload] {
            sent.push_back({ids, meta, transport != nullptr, &table, marshalled(table, payload)});
        };
        if (holds) {
            held.push_back([look, completed] {
                look();
                completed();
            });
            return 0;
        }
        look();
        completed();
        return -11;
    }

    bool holds = false;                        // completes messages only when the test calls the entries of `held`
    std::vector<boost::function<void()>> held; // one per message
    std::vector<Sent> sent;
    std::vector<Bound> bound;
};

} // namespace support
