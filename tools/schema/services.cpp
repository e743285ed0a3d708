#include "schema.h"

#include <genrpc/message.h>
#include <mmservice/meanings.h>
#include <tvservice/meanings.h>

#include <tuple>
#include <type_traits>
#include <utility>

namespace schema {
namespace {

template <class F> struct TypeOf { static constexpr Type type{Kind::Record, sizeof(F), false, F::Plain::recordName}; };
template <class T> struct TypeOf<vdl::Word<T>> {
    static constexpr bool isSigned() {
        if constexpr (std::is_enum_v<T>)
            return std::is_signed_v<std::underlying_type_t<T>>;
        else
            return std::is_signed_v<T>;
    }
    static constexpr Type type{Kind::Scalar, sizeof(T), isSigned()};
};
template <> struct TypeOf<genrpc::WideBool> { static constexpr Type type{Kind::Flag, sizeof(genrpc::WideBool)}; };
template <> struct TypeOf<vdlDeserString_t> { static constexpr Type type{Kind::String, sizeof(vdlDeserString_t)}; };
template <> struct TypeOf<vdlDeserBlobString_t> {
    static constexpr Type type{Kind::StringList, sizeof(vdlDeserBlobString_t)};
};
template <> struct TypeOf<vdlDeserBlobUint32_t> {
    static constexpr Type type{Kind::Uint32List, sizeof(vdlDeserBlobUint32_t)};
};
template <class E> struct TypeOf<genrpc::Sequence<E>> {
    static constexpr Type type{Kind::Sequence, sizeof(genrpc::Sequence<E>), false, E::Plain::recordName};
};

template <class R> Record recordOf(const char* family) {
    std::vector<Field> fields;
    auto meaning = genrpc::meanings<R>.begin();
    std::apply(
        [&](const auto&... field) {
            ((fields.push_back({field.name, field.offset,
                                TypeOf<typename genrpc::MemberType<decltype(field.flat)>::Type>::type, meaning->text,
                                meaning->values}),
              ++meaning),
             ...);
        },
        R::Flat::fields());
    return {R::recordName, family, R::Flat::table(), std::move(fields)};
}

template <class M> std::vector<Field> argumentsOf() {
    return []<class... Args>(std::type_identity<std::tuple<Args...>>) {
        std::vector<Field> fields;
        [[maybe_unused]] std::size_t index = 0;
        ((fields.push_back(
              {M::arguments[index], M::Body::offsetOf(index), TypeOf<genrpc::FlatType<Args>>::type, "", nullptr}),
          ++index),
         ...);
        if constexpr (genrpc::hasMeanings<M>)
            for (std::size_t i = 0; i < fields.size(); ++i) {
                fields[i].meaning = genrpc::meanings<M>[i].text;
                fields[i].values = genrpc::meanings<M>[i].values;
            }
        return fields;
    }(std::type_identity<typename M::Body::Arguments>{});
}

template <class T> std::string parameterText(const char* type, const char* name) {
    const std::string text = std::is_reference_v<genrpc::Parameter<T>> ? "const " + std::string(type) + "&" : type;
    return ", " + text + " " + name;
}

template <class M> Message messageOf(const char* direction, const char* method, const std::string& parameters) {
    return {
        M::name,
        direction,
        method,
        "int " + std::string(method) + "(frame::MsgIds& ids, const frame::TransportInfo& transport" + parameters + ")",
        M::meta,
        M::table(),
        argumentsOf<M>()};
}

#define SCHEMA_PARAMETER(type, name) +parameterText<type>(#type, #name)
#define SCHEMA_MESSAGE(service, direction, Name, method, id, ...) \
    messageOf<service::messages::Name>(#direction, #method, std::string() GENRPC_EACH(SCHEMA_PARAMETER, __VA_ARGS__)),
#define SCHEMA_RECORD(family, Record, FIELDS) recordOf<Record>(#family),

Service tvService() {
    using namespace tvservice;
    return {serviceName,
            {TVSERVICE_MESSAGES(SCHEMA_MESSAGE)},
            {TVSERVICE_CORE_RECORDS(SCHEMA_RECORD) TVSERVICE_STREAM_RECORDS(SCHEMA_RECORD)
                 TVSERVICE_STATUS_RECORDS(SCHEMA_RECORD)}};
}

Service mmService() {
    using namespace mmservice;
    return {serviceName, {MMSERVICE_MESSAGES(SCHEMA_MESSAGE)}, {MMSERVICE_RECORDS(SCHEMA_RECORD)}};
}

} // namespace

const std::vector<Service>& services() {
    static const std::vector<Service> both{tvService(), mmService()};
    return both;
}

#define SCHEMA_ENUMERATION(constants, enumeration, title, about, VALUES) &tvservice::enumeration,

const std::vector<const genrpc::Enumeration*>& enumerations() {
    static const std::vector<const genrpc::Enumeration*> all{TVSERVICE_ENUMERATIONS(SCHEMA_ENUMERATION)};
    return all;
}

} // namespace schema
