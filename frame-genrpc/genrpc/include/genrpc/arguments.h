// Macros for a message's arguments. A list of messages gives each as a pair (type, name), at most two per message.
#pragma once

#include <frame/message.h>

#include <type_traits>

namespace genrpc {

// How an argument is passed: records, lists and strings by reference, numbers by value.
template <class T> using Parameter = std::conditional_t<std::is_class_v<T>, const T&, T>;

} // namespace genrpc

// USE(type, name) for each pair.
#define GENRPC_EACH(USE, ...) __VA_OPT__(GENRPC_EACH_OF(USE, __VA_ARGS__))
#define GENRPC_EACH_OF(USE, first, ...) USE first __VA_OPT__(GENRPC_LAST(USE, __VA_ARGS__))
#define GENRPC_LAST(USE, last) USE last

// All names, separated by commas.
#define GENRPC_NAMES(...) __VA_OPT__(GENRPC_NAMES_OF(__VA_ARGS__))
#define GENRPC_NAMES_OF(first, ...) GENRPC_NAME_ALONE first __VA_OPT__(GENRPC_LAST(GENRPC_NAME, __VA_ARGS__))

#define GENRPC_TYPE(type, name) , type
#define GENRPC_NAME(type, name) , name
#define GENRPC_NAME_ALONE(type, name) name
#define GENRPC_NAME_TEXT(type, name) #name,
#define GENRPC_PARAMETER(type, name) , ::genrpc::Parameter<type> name
#define GENRPC_UNNAMED_PARAMETER(type, name) , ::genrpc::Parameter<type>

// The parameters of every method of the service and client interfaces: the caller's ids, the origin of the message, and
// the message's arguments.
#define GENRPC_PARAMETERS(...) \
    frame::MsgIds &ids, const frame::TransportInfo &transport GENRPC_EACH(GENRPC_PARAMETER, __VA_ARGS__)

// For lists of messages: declares the methods of a class that implements an interface.
#define GENRPC_OVERRIDE(service, direction, Name, method, id, ...) int method(GENRPC_PARAMETERS(__VA_ARGS__)) override;
