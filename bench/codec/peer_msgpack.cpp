#include "codec/cases.h"
#include "codec/members.h"

#include <msgpack.hpp>

namespace msgpack {
MSGPACK_API_VERSION_NAMESPACE(MSGPACK_DEFAULT_API_NS) {
    namespace adaptor {

    template <bench::Record R> struct pack<R> {
        template <class Stream> packer<Stream>& operator()(packer<Stream>& out, const R& record) const {
            out.pack_array(static_cast<std::uint32_t>(bench::memberCount<R>));
            bench::eachMember(record, [&](const auto& member) { out.pack(member); });
            return out;
        }
    };
    template <bench::Record R> struct convert<R> {
        const msgpack::object& operator()(const msgpack::object& object, R& record) const {
            if (object.type != type::ARRAY || object.via.array.size != bench::memberCount<R>) throw type_error();
            const msgpack::object* element = object.via.array.ptr;
            bench::eachMember(record, [&](auto& member) { (element++)->convert(member); });
            return object;
        }
    };

    } // namespace adaptor
}
} // namespace msgpack

namespace {

struct MessagePack {
    msgpack::sbuffer buffer;

    template <class Plain> bench::WireBytes encode(const Plain& plain) {
        buffer.clear();
        msgpack::pack(buffer, plain);
        return {buffer.data(), buffer.size()};
    }
    template <class Plain> Plain decode(char* bytes, std::size_t size) {
        Plain plain;
        const auto byReference = [](msgpack::type::object_type, std::size_t, void*) { return true; };
        msgpack::object_handle handle;
        msgpack::unpack(handle, bytes, size, byReference);
        handle.get().convert(plain);
        return plain;
    }
};

const bool added = bench::addPeer<MessagePack>("msgpack");

} // namespace
