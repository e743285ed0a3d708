#include "text-messages.h"

#include "frame.h"

#include <genrpc/json.h>
#include <mmservice/messages.h>
#include <tvservice/messages.h>

#include <cstddef>
#include <optional>
#include <tuple>
#include <type_traits>

namespace access_check {
namespace {

// Writes a text into every text field of a value, or into one of them. A list gets one element.
class Filler {
public:
    explicit Filler(const std::string& text, std::optional<std::size_t> only = {}) : text_(text), only_(only) {}

    void operator()(std::string& field) {
        if (!only_ || *only_ == fields_) field = text_;
        ++fields_;
    }
    template <class T> void operator()(std::vector<T>& list) {
        list.resize(1);
        (*this)(list.front());
    }
    template <class... T> void operator()(std::tuple<T...>& values) {
        std::apply([&](T&... value) { ((*this)(value), ...); }, values);
    }
    template <class T> void operator()(T& value) {
        if constexpr (std::is_class_v<T>)
            std::apply([&](const auto&... field) { ((*this)(value.*field.plain), ...); }, T::Flat::fields());
    }

    std::size_t fields() const { return fields_; } // number of text fields so far

private:
    const std::string& text_;
    const std::optional<std::size_t> only_;
    std::size_t fields_ = 0;
};

template <class Message>
TextMessage messageOf(const typename Message::Body::Arguments& arguments, const std::string& notification) {
    return std::apply(
        [&](const auto&... argument) {
            const auto json = genrpc::argumentsToJson<Message>(argument...);
            return TextMessage{notification, nlohmann::json::parse(genrpc::textOf(json)),
                               frameOf<Message>(argument...)};
        },
        arguments);
}

template <class Message>
void add(const std::string& text, std::vector<TextMessage>& all, const std::string& notification = Message::name) {
    typename Message::Body::Arguments arguments;
    Filler filler(text);
    filler(arguments);
    if (filler.fields() > 0 && !isLong(text)) return all.push_back(messageOf<Message>(arguments, notification));
    for (std::size_t i = 0; i < filler.fields(); ++i) {
        arguments = {};
        Filler(text, i)(arguments);
        all.push_back(messageOf<Message>(arguments, notification));
    }
}

} // namespace

#define ACCESS_ADD(service, direction, Name, ...) add<service::messages::Name>(text, all);

std::vector<TextMessage> requestsWith(const std::string& text, Part service) {
    std::vector<TextMessage> all;
    if (service == Part::mmService) {
        MMSERVICE_REQUESTS(ACCESS_ADD)
    } else {
        TVSERVICE_REQUESTS(ACCESS_ADD)
    }
    return all;
}

std::vector<TextMessage> notificationsWith(const std::string& text, Part service) {
    std::vector<TextMessage> all;
    if (service == Part::mmService) { // the adapter notifies its clients as for the TV service
        add<mmservice::messages::MmServiceInfo>(text, all, tvservice::messages::TvServiceInfo::name);
    } else {
        TVSERVICE_NOTIFICATIONS(ACCESS_ADD)
    }
    return all;
}

#undef ACCESS_ADD

} // namespace access_check
