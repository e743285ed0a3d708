// FlatBuffers with a reused builder. Received messages are verified.
#include "codec/cases.h"

#include <records_generated.h>

namespace {

using Request = tvservice::TvServiceReq_t;
using Info = tvservice::TvServiceInfo_t;
using bench::AudioInfo;
using AudioStream = tvservice::AudioStreamInfo_t;

using Builder = flatbuffers::FlatBufferBuilder;
using Text = flatbuffers::Offset<flatbuffers::String>;
template <class Record> using Items = flatbuffers::Offset<flatbuffers::Vector<flatbuffers::Offset<Record>>>;

Text text(Builder& b, const std::string& s) { return s.empty() ? Text() : b.CreateString(s); }
void get(const flatbuffers::String* from, std::string& to) {
    if (from)
        to.assign(from->data(), from->size());
    else
        to.clear();
}

flatbuffers::Offset<bench_fb::Request> put(Builder& b, const Request& r) {
    const Text uri = text(b, r.uri), s1 = text(b, r.strParam1), uuid = text(b, r.uuid), s2 = text(b, r.strParam2);
    const auto list =
        b.CreateVector<Text>(r.strParamList.size(), [&](std::size_t i) { return b.CreateString(r.strParamList[i]); });
    const Text reqId = text(b, r.reqId), s3 = text(b, r.strParam3), s4 = text(b, r.strParam4);
    const bench_fb::Terminal terminal(r.terminal.type, r.terminal.id);
    return bench_fb::CreateRequest(b, &terminal, r.intParam1, r.intParam2, r.intParam3, uri, s1, uuid, s2, list, reqId,
                                   s3, s4, r.intParam4);
}
flatbuffers::Offset<bench_fb::Info> put(Builder& b, const Info& r) {
    const Text uri = text(b, r.uri), uuid = text(b, r.uuid), ancestor = text(b, r.uuidAncestor),
               reqId = text(b, r.reqId);
    const bench_fb::Terminal terminal(r.terminal.type, r.terminal.id);
    return bench_fb::CreateInfo(b, &terminal, r.result, uri, uuid, ancestor, reqId);
}
flatbuffers::Offset<bench_fb::AudioInfo> put(Builder& b, const AudioInfo& r) {
    const auto streams =
        b.CreateVector<flatbuffers::Offset<bench_fb::AudioStream>>(r.streams.size(), [&](std::size_t i) {
            const AudioStream& s = r.streams[i];
            const Text s1 = text(b, s.strParam1), s2 = text(b, s.strParam2), s3 = text(b, s.strParam3),
                       s4 = text(b, s.strParam4);
            return bench_fb::CreateAudioStream(b, s.intParam1, s1, s2, s.intParam2, s.intParam3, s.intParam4,
                                               s.shortParam1, s.shortParam2, s.flagParam1, s.flagParam2, s3,
                                               s.shortParam3, s.shortParam4, s4);
        });
    const bench_fb::Terminal terminal(r.terminal.type, r.terminal.id);
    return bench_fb::CreateAudioInfo(b, &terminal, r.intParam1, r.intParam2, r.intParam3, streams);
}

void get(const bench_fb::Request& m, Request& r) {
    if (m.terminal()) r.terminal = {m.terminal()->type(), m.terminal()->id()};
    r.intParam1 = m.intParam1();
    r.intParam2 = m.intParam2();
    r.intParam3 = m.intParam3();
    get(m.uri(), r.uri);
    get(m.strParam1(), r.strParam1);
    get(m.uuid(), r.uuid);
    get(m.strParam2(), r.strParam2);
    r.strParamList.resize(m.strParamList() ? m.strParamList()->size() : 0);
    for (std::size_t i = 0; i < r.strParamList.size(); ++i)
        get(m.strParamList()->Get(static_cast<flatbuffers::uoffset_t>(i)), r.strParamList[i]);
    get(m.reqId(), r.reqId);
    get(m.strParam3(), r.strParam3);
    get(m.strParam4(), r.strParam4);
    r.intParam4 = m.intParam4();
}
void get(const bench_fb::Info& m, Info& r) {
    if (m.terminal()) r.terminal = {m.terminal()->type(), m.terminal()->id()};
    r.result = m.result();
    get(m.uri(), r.uri);
    get(m.uuid(), r.uuid);
    get(m.uuidAncestor(), r.uuidAncestor);
    get(m.reqId(), r.reqId);
}
void get(const bench_fb::AudioInfo& m, AudioInfo& r) {
    if (m.terminal()) r.terminal = {m.terminal()->type(), m.terminal()->id()};
    r.intParam1 = m.intParam1();
    r.intParam2 = m.intParam2();
    r.intParam3 = m.intParam3();
    r.streams.resize(m.streams() ? m.streams()->size() : 0);
    for (std::size_t i = 0; i < r.streams.size(); ++i) {
        const bench_fb::AudioStream& o = *m.streams()->Get(static_cast<flatbuffers::uoffset_t>(i));
        AudioStream& s = r.streams[i];
        s.intParam1 = o.intParam1();
        get(o.strParam1(), s.strParam1);
        get(o.strParam2(), s.strParam2);
        s.intParam2 = o.intParam2();
        s.intParam3 = o.intParam3();
        s.intParam4 = o.intParam4();
        s.shortParam1 = o.shortParam1();
        s.shortParam2 = o.shortParam2();
        s.flagParam1 = o.flagParam1();
        s.flagParam2 = o.flagParam2();
        get(o.strParam3(), s.strParam3);
        s.shortParam3 = o.shortParam3();
        s.shortParam4 = o.shortParam4();
        get(o.strParam4(), s.strParam4);
    }
}

// A list of records is a separate table.
template <class Plain, class Record, class List>
flatbuffers::Offset<List> putList(Builder& b, const std::vector<Plain>& plain,
                                  flatbuffers::Offset<List> (*create)(Builder&, Items<Record>)) {
    return create(
        b, b.CreateVector<flatbuffers::Offset<Record>>(plain.size(), [&](std::size_t i) { return put(b, plain[i]); }));
}
template <class Plain, class List> void getList(const List& list, std::vector<Plain>& plain) {
    plain.resize(list.items()->size());
    for (std::size_t i = 0; i < plain.size(); ++i)
        get(*list.items()->Get(static_cast<flatbuffers::uoffset_t>(i)), plain[i]);
}
auto put(Builder& b, const bench::Requests& plain) { return putList(b, plain, bench_fb::CreateRequests); }
auto put(Builder& b, const bench::Infos& plain) { return putList(b, plain, bench_fb::CreateInfos); }
void get(const bench_fb::Requests& list, bench::Requests& plain) { getList(list, plain); }
void get(const bench_fb::Infos& list, bench::Infos& plain) { getList(list, plain); }

template <class Plain> struct RootOf;
template <> struct RootOf<bench::Requests> { using Type = bench_fb::Requests; };
template <> struct RootOf<bench::Infos> { using Type = bench_fb::Infos; };
template <> struct RootOf<AudioInfo> { using Type = bench_fb::AudioInfo; };

class FlatBuffers {
public:
    template <class Plain> bench::WireBytes encode(const Plain& plain) {
        builder_.Clear();
        builder_.Finish(put(builder_, plain));
        return {reinterpret_cast<const char*>(builder_.GetBufferPointer()), builder_.GetSize()};
    }
    template <class Plain> Plain decode(char* bytes, std::size_t size) {
        Plain plain;
        using Root = typename RootOf<Plain>::Type;
        const auto* start = reinterpret_cast<const std::uint8_t*>(bytes);
        flatbuffers::Verifier verifier(start, size, 64, 1U << 30);
        if (!verifier.VerifyBuffer<Root>(nullptr)) throw std::invalid_argument("FlatBuffers");
        get(*flatbuffers::GetRoot<Root>(start), plain);
        return plain;
    }

private:
    Builder builder_{64 << 10};
};

const bool added = bench::addPeer<FlatBuffers>("flatbuffers");

} // namespace
