// protobuf with reused messages, which is fastest apart from arenas.
#include "codec/cases.h"

#include <records.pb.h>

namespace {

using Request = tvservice::TvServiceReq_t;
using Info = tvservice::TvServiceInfo_t;
using bench::AudioInfo;
using AudioStream = tvservice::AudioStreamInfo_t;

void fill(bench_pb::Request& m, const Request& r) {
    m.mutable_terminal()->set_type(r.terminal.type);
    m.mutable_terminal()->set_id(r.terminal.id);
    m.set_intparam1(r.intParam1);
    m.set_intparam2(r.intParam2);
    m.set_intparam3(r.intParam3);
    m.set_intparam4(r.intParam4);
    if (!r.uri.empty()) m.set_uri(r.uri);
    if (!r.strParam1.empty()) m.set_strparam1(r.strParam1);
    if (!r.uuid.empty()) m.set_uuid(r.uuid);
    if (!r.strParam2.empty()) m.set_strparam2(r.strParam2);
    for (const std::string& s : r.strParamList) m.add_strparamlist(s);
    if (!r.reqId.empty()) m.set_reqid(r.reqId);
    if (!r.strParam3.empty()) m.set_strparam3(r.strParam3);
    if (!r.strParam4.empty()) m.set_strparam4(r.strParam4);
}
void fill(bench_pb::Info& m, const Info& r) {
    m.mutable_terminal()->set_type(r.terminal.type);
    m.mutable_terminal()->set_id(r.terminal.id);
    m.set_result(r.result);
    if (!r.uri.empty()) m.set_uri(r.uri);
    if (!r.uuid.empty()) m.set_uuid(r.uuid);
    if (!r.uuidAncestor.empty()) m.set_uuidancestor(r.uuidAncestor);
    if (!r.reqId.empty()) m.set_reqid(r.reqId);
}
void fill(bench_pb::AudioInfo& m, const AudioInfo& r) {
    m.mutable_terminal()->set_type(r.terminal.type);
    m.mutable_terminal()->set_id(r.terminal.id);
    m.set_intparam1(r.intParam1);
    m.set_intparam2(r.intParam2);
    m.set_intparam3(r.intParam3);
    for (const AudioStream& s : r.streams) {
        bench_pb::AudioStream& o = *m.add_streams();
        o.set_intparam1(s.intParam1);
        if (!s.strParam1.empty()) o.set_strparam1(s.strParam1);
        if (!s.strParam2.empty()) o.set_strparam2(s.strParam2);
        o.set_intparam2(s.intParam2);
        o.set_intparam3(s.intParam3);
        o.set_intparam4(s.intParam4);
        o.set_shortparam1(s.shortParam1);
        o.set_shortparam2(s.shortParam2);
        o.set_flagparam1(s.flagParam1);
        o.set_flagparam2(s.flagParam2);
        if (!s.strParam3.empty()) o.set_strparam3(s.strParam3);
        o.set_shortparam3(s.shortParam3);
        o.set_shortparam4(s.shortParam4);
        if (!s.strParam4.empty()) o.set_strparam4(s.strParam4);
    }
}

void read(const bench_pb::Request& m, Request& r) {
    r.terminal = {m.terminal().type(), m.terminal().id()};
    r.intParam1 = m.intparam1();
    r.intParam2 = m.intparam2();
    r.intParam3 = m.intparam3();
    r.intParam4 = m.intparam4();
    r.uri = m.uri();
    r.strParam1 = m.strparam1();
    r.uuid = m.uuid();
    r.strParam2 = m.strparam2();
    r.strParamList.resize(static_cast<std::size_t>(m.strparamlist_size()));
    for (int i = 0; i < m.strparamlist_size(); ++i) r.strParamList[static_cast<std::size_t>(i)] = m.strparamlist(i);
    r.reqId = m.reqid();
    r.strParam3 = m.strparam3();
    r.strParam4 = m.strparam4();
}
void read(const bench_pb::Info& m, Info& r) {
    r.terminal = {m.terminal().type(), m.terminal().id()};
    r.result = m.result();
    r.uri = m.uri();
    r.uuid = m.uuid();
    r.uuidAncestor = m.uuidancestor();
    r.reqId = m.reqid();
}
void read(const bench_pb::AudioInfo& m, AudioInfo& r) {
    r.terminal = {m.terminal().type(), m.terminal().id()};
    r.intParam1 = m.intparam1();
    r.intParam2 = m.intparam2();
    r.intParam3 = m.intparam3();
    r.streams.resize(static_cast<std::size_t>(m.streams_size()));
    for (int i = 0; i < m.streams_size(); ++i) {
        const bench_pb::AudioStream& o = m.streams(i);
        AudioStream& s = r.streams[static_cast<std::size_t>(i)];
        s.intParam1 = o.intparam1();
        s.strParam1 = o.strparam1();
        s.strParam2 = o.strparam2();
        s.intParam2 = o.intparam2();
        s.intParam3 = o.intparam3();
        s.intParam4 = o.intparam4();
        s.shortParam1 = static_cast<std::uint16_t>(o.shortparam1());
        s.shortParam2 = static_cast<std::uint16_t>(o.shortparam2());
        s.flagParam1 = o.flagparam1();
        s.flagParam2 = o.flagparam2();
        s.strParam3 = o.strparam3();
        s.shortParam3 = static_cast<std::uint16_t>(o.shortparam3());
        s.shortParam4 = static_cast<std::uint16_t>(o.shortparam4());
        s.strParam4 = o.strparam4();
    }
}

// A list of records is a separate message.
template <class Plain, class Message> void fill(Message& message, const std::vector<Plain>& plain) {
    message.mutable_items()->Reserve(static_cast<int>(plain.size()));
    for (const Plain& record : plain) fill(*message.add_items(), record);
}
template <class Plain, class Message> void read(const Message& message, std::vector<Plain>& plain) {
    plain.resize(static_cast<std::size_t>(message.items_size()));
    for (int i = 0; i < message.items_size(); ++i) read(message.items(i), plain[static_cast<std::size_t>(i)]);
}

template <class Plain> struct MessageOf;
template <> struct MessageOf<bench::Requests> { using Type = bench_pb::Requests; };
template <> struct MessageOf<bench::Infos> { using Type = bench_pb::Infos; };
template <> struct MessageOf<AudioInfo> { using Type = bench_pb::AudioInfo; };

class Protobuf {
public:
    template <class Plain> bench::WireBytes encode(const Plain& plain) {
        auto& message = reused<Plain>();
        message.Clear();
        fill(message, plain);
        const std::size_t size = message.ByteSizeLong();
        if (size > wire_.size()) wire_.resize(size);
        message.SerializeWithCachedSizesToArray(reinterpret_cast<std::uint8_t*>(wire_.data()));
        return {wire_.data(), size};
    }
    template <class Plain> Plain decode(char* bytes, std::size_t size) {
        Plain plain;
        auto& message = reused<Plain>();
        message.Clear();
        if (!message.ParseFromArray(bytes, static_cast<int>(size))) throw std::invalid_argument("protobuf");
        read(message, plain);
        return plain;
    }

private:
    template <class Plain> auto& reused() { return std::get<typename MessageOf<Plain>::Type>(messages_); }

    std::tuple<bench_pb::Requests, bench_pb::Infos, bench_pb::AudioInfo> messages_;
    std::string wire_;
};

const bool added = bench::addPeer<Protobuf>("protobuf");

} // namespace
