// An IO module without a socket: keeps what is sent and bound.
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

    // What it answers does not matter to proxies.
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

    bool holds = false;                        // looks at messages and completes them only when `held` are called
    std::vector<boost::function<void()>> held; // one per message
    std::vector<Sent> sent;
    std::vector<Bound> bound;
};

} // namespace support
