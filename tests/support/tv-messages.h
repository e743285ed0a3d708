// The records and messages of the services as lists of types, for tests that go through all of them.
#pragma once

#include <mmservice/messages.h>
#include <tvservice/interfaces.h>
#include <tvservice/messages.h>

#include <cstddef>
#include <gtest/gtest.h>

namespace support {

template <class... T> struct TypeList { static constexpr std::size_t size = sizeof...(T); };
// The macros below put a comma before each type. The first parameter, void, precedes the first comma.
template <class, class... T> using ListOf = TypeList<T...>;

#define SUPPORT_TV_RECORD(family, Record, FIELDS) , tvservice::Record
#define SUPPORT_MM_RECORD(family, Record, FIELDS) , mmservice::Record
#define SUPPORT_MESSAGE(service, direction, Name, ...) , service::messages::Name

using CoreRecords = ListOf<void TVSERVICE_CORE_RECORDS(SUPPORT_TV_RECORD) MMSERVICE_RECORDS(SUPPORT_MM_RECORD)>;
using StreamRecords = ListOf<void TVSERVICE_STREAM_RECORDS(SUPPORT_TV_RECORD)>;
using StatusRecords = ListOf<void TVSERVICE_STATUS_RECORDS(SUPPORT_TV_RECORD)>;
using TvRequests = ListOf<void TVSERVICE_REQUESTS(SUPPORT_MESSAGE)>;
using TvNews = ListOf<void TVSERVICE_NEWS(SUPPORT_MESSAGE)>;
using TvNotifications = ListOf<void TVSERVICE_NOTIFICATIONS(SUPPORT_MESSAGE)>;
using AllMessages = ListOf<void TVSERVICE_MESSAGES(SUPPORT_MESSAGE) MMSERVICE_MESSAGES(SUPPORT_MESSAGE)>;

#undef SUPPORT_TV_RECORD
#undef SUPPORT_MM_RECORD
#undef SUPPORT_MESSAGE

template <class T> constexpr const char* nameOf() {
    if constexpr (requires { T::recordName; })
        return T::recordName;
    else
        return T::name;
}

// Calls use.operator()<T>() for each type. A failure inside names the type.
template <class... T, class Use> void forEach(TypeList<T...>, Use use) {
    const auto one = [&]<class Type>() {
        SCOPED_TRACE(nameOf<Type>());
        use.template operator()<Type>();
    };
    (one.template operator()<T>(), ...);
}

// The method of the TV interfaces for a message.
template <class Message> struct Method;
#define SUPPORT_METHOD(Interface, Name, method_)                        \
    template <> struct Method<tvservice::messages::Name> {              \
        static constexpr const char* name = #method_;                   \
        static constexpr auto pointer = &tvservice::Interface::method_; \
    };
#define SUPPORT_REQUEST_METHOD(service, direction, Name, method, ...) SUPPORT_METHOD(ServiceInterface, Name, method)
#define SUPPORT_NOTIFICATION_METHOD(service, direction, Name, method, ...) SUPPORT_METHOD(ClientInterface, Name, method)
TVSERVICE_REQUESTS(SUPPORT_REQUEST_METHOD)
TVSERVICE_NOTIFICATIONS(SUPPORT_NOTIFICATION_METHOD)
#undef SUPPORT_METHOD
#undef SUPPORT_REQUEST_METHOD
#undef SUPPORT_NOTIFICATION_METHOD

// Calls a message's method with its arguments as a tuple.
template <class Message, class Interface>
int call(Interface& object, frame::MsgIds& ids, const frame::TransportInfo& transport,
         const typename Message::Body::Arguments& arguments) {
    return std::apply(
        [&](const auto&... argument) { return (object.*Method<Message>::pointer)(ids, transport, argument...); },
        arguments);
}

} // namespace support
