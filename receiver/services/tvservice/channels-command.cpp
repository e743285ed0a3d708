#include "tvservice/channels-command.h"

#include <tvservice-adapter/service/shell-list.h>

#include <nlohmann/json.hpp>

namespace services {

int ChannelsCommand::registerWith(appovshell::Server& shell) {
    shell_ = &shell;
    return shell.registerCommand(
        "channels", "- lists the channels", [](void* self) { return static_cast<ChannelsCommand*>(self)->print(); },
        this);
}

int ChannelsCommand::print() {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const auto& [uri, channel] : channels_.all()) {
        list.push_back({{"number", channels_.numberOf(uri)}, {"uri", uri}, {"name", channel.name}});
        if (channel.transport.empty()) continue;
        list.back()["source"] = channel.transport;
        list.back()["program"] = channel.program;
    }
    printList(*shell_, list);
    return 0;
}

} // namespace services
