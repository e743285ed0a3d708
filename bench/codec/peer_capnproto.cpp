// Cap'n Proto with a reused first segment.
#include "codec/cases.h"

#include <capnp/message.h>
#include <capnp/serialize.h>
#include <records.capnp.h>

namespace {

using Request = tvservice::TvServiceReq_t;
using Info = tvservice::TvServiceInfo_t;
using bench::AudioInfo;
using AudioStream = tvservice::AudioStreamInfo_t;

kj::StringPtr ptr(const std::string& s) { return {s.c_str(), s.size()}; }
void get(capnp::Text::Reader from, std::string& to) { to.assign(from.begin(), from.size()); }

void put(bench_cp::Request::Builder m, const Request& r) {
    m.setType(r.terminal.type);
    m.setId(r.terminal.id);
    m.setIntParam1(r.intParam1);
    m.setIntParam2(r.intParam2);
    m.setIntParam3(r.intParam3);
    m.setIntParam4(r.intParam4);
    if (!r.uri.empty()) m.setUri(ptr(r.uri));
    if (!r.strParam1.empty()) m.setStrParam1(ptr(r.strParam1));
    if (!r.uuid.empty()) m.setUuid(ptr(r.uuid));
    if (!r.strParam2.empty()) m.setStrParam2(ptr(r.strParam2));
    if (!r.strParamList.empty()) {
        auto list = m.initStrParamList(static_cast<unsigned>(r.strParamList.size()));
        for (unsigned i = 0; i < list.size(); ++i) list.set(i, ptr(r.strParamList[i]));
    }
    if (!r.reqId.empty()) m.setReqId(ptr(r.reqId));
    if (!r.strParam3.empty()) m.setStrParam3(ptr(r.strParam3));
    if (!r.strParam4.empty()) m.setStrParam4(ptr(r.strParam4));
}
void put(bench_cp::Info::Builder m, const Info& r) {
    m.setType(r.terminal.type);
    m.setId(r.terminal.id);
    m.setResult(r.result);
    if (!r.uri.empty()) m.setUri(ptr(r.uri));
    if (!r.uuid.empty()) m.setUuid(ptr(r.uuid));
    if (!r.uuidAncestor.empty()) m.setUuidAncestor(ptr(r.uuidAncestor));
    if (!r.reqId.empty()) m.setReqId(ptr(r.reqId));
}
void put(bench_cp::AudioInfo::Builder m, const AudioInfo& r) {
    m.setType(r.terminal.type);
    m.setId(r.terminal.id);
    m.setIntParam1(r.intParam1);
    m.setIntParam2(r.intParam2);
    m.setIntParam3(r.intParam3);
    auto streams = m.initStreams(static_cast<unsigned>(r.streams.size()));
    for (unsigned i = 0; i < streams.size(); ++i) {
        const AudioStream& s = r.streams[i];
        auto o = streams[i];
        o.setIntParam1(s.intParam1);
        if (!s.strParam1.empty()) o.setStrParam1(ptr(s.strParam1));
        if (!s.strParam2.empty()) o.setStrParam2(ptr(s.strParam2));
        o.setIntParam2(s.intParam2);
        o.setIntParam3(s.intParam3);
        o.setIntParam4(s.intParam4);
        o.setShortParam1(s.shortParam1);
        o.setShortParam2(s.shortParam2);
        o.setFlagParam1(s.flagParam1);
        o.setFlagParam2(s.flagParam2);
        if (!s.strParam3.empty()) o.setStrParam3(ptr(s.strParam3));
        o.setShortParam3(s.shortParam3);
        o.setShortParam4(s.shortParam4);
        if (!s.strParam4.empty()) o.setStrParam4(ptr(s.strParam4));
    }
}

void get(bench_cp::Request::Reader m, Request& r) {
    r.terminal = {m.getType(), m.getId()};
    r.intParam1 = m.getIntParam1();
    r.intParam2 = m.getIntParam2();
    r.intParam3 = m.getIntParam3();
    r.intParam4 = m.getIntParam4();
    get(m.getUri(), r.uri);
    get(m.getStrParam1(), r.strParam1);
    get(m.getUuid(), r.uuid);
    get(m.getStrParam2(), r.strParam2);
    const auto list = m.getStrParamList();
    r.strParamList.resize(list.size());
    for (unsigned i = 0; i < list.size(); ++i) get(list[i], r.strParamList[i]);
    get(m.getReqId(), r.reqId);
    get(m.getStrParam3(), r.strParam3);
    get(m.getStrParam4(), r.strParam4);
}
void get(bench_cp::Info::Reader m, Info& r) {
    r.terminal = {m.getType(), m.getId()};
    r.result = m.getResult();
    get(m.getUri(), r.uri);
    get(m.getUuid(), r.uuid);
    get(m.getUuidAncestor(), r.uuidAncestor);
    get(m.getReqId(), r.reqId);
}
void get(bench_cp::AudioInfo::Reader m, AudioInfo& r) {
    r.terminal = {m.getType(), m.getId()};
    r.intParam1 = m.getIntParam1();
    r.intParam2 = m.getIntParam2();
    r.intParam3 = m.getIntParam3();
    const auto streams = m.getStreams();
    r.streams.resize(streams.size());
    for (unsigned i = 0; i < streams.size(); ++i) {
        const auto o = streams[i];
        AudioStream& s = r.streams[i];
        s.intParam1 = o.getIntParam1();
        get(o.getStrParam1(), s.strParam1);
        get(o.getStrParam2(), s.strParam2);
        s.intParam2 = o.getIntParam2();
        s.intParam3 = o.getIntParam3();
        s.intParam4 = o.getIntParam4();
        s.shortParam1 = o.getShortParam1();
        s.shortParam2 = o.getShortParam2();
        s.flagParam1 = o.getFlagParam1();
        s.flagParam2 = o.getFlagParam2();
        get(o.getStrParam3(), s.strParam3);
        s.shortParam3 = o.getShortParam3();
        s.shortParam4 = o.getShortParam4();
        get(o.getStrParam4(), s.strParam4);
    }
}

// A list of records is a separate struct.
template <class Builder, class Plain> void put(Builder list, const std::vector<Plain>& plain) {
    auto items = list.initItems(static_cast<unsigned>(plain.size()));
    for (unsigned i = 0; i < items.size(); ++i) put(items[i], plain[i]);
}
template <class Reader, class Plain> void get(Reader list, std::vector<Plain>& plain) {
    const auto items = list.getItems();
    plain.resize(items.size());
    for (unsigned i = 0; i < items.size(); ++i) get(items[i], plain[i]);
}

template <class Plain> struct RootOf;
template <> struct RootOf<bench::Requests> { using Type = bench_cp::Requests; };
template <> struct RootOf<bench::Infos> { using Type = bench_cp::Infos; };
template <> struct RootOf<AudioInfo> { using Type = bench_cp::AudioInfo; };

class CapnProto {
public:
    CapnProto() { std::memset(segment_.begin(), 0, segment_.asBytes().size()); }

    template <class Plain> bench::WireBytes encode(const Plain& plain) {
        capnp::MallocMessageBuilder message(segment_); // its destructor zeroes the used part
        put(message.initRoot<typename RootOf<Plain>::Type>(), plain);
        const std::size_t size = capnp::computeSerializedSizeInWords(message) * sizeof(capnp::word);
        if (size > wire_.size()) wire_.resize(size);
        kj::ArrayOutputStream out(kj::arrayPtr(reinterpret_cast<kj::byte*>(wire_.data()), size));
        capnp::writeMessage(out, message);
        return {wire_.data(), size};
    }
    template <class Plain> Plain decode(char* bytes, std::size_t size) {
        Plain plain;
        capnp::ReaderOptions options;
        options.traversalLimitInWords = 1U << 30;
        capnp::FlatArrayMessageReader message(
            kj::arrayPtr(reinterpret_cast<const capnp::word*>(bytes), size / sizeof(capnp::word)), options);
        get(message.getRoot<typename RootOf<Plain>::Type>(), plain);
        return plain;
    }

private:
    kj::Array<capnp::word> segment_ = kj::heapArray<capnp::word>(128 << 10);
    std::string wire_;
};

const bool added = bench::addPeer<CapnProto>("capnproto");

} // namespace
