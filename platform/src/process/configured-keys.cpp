#include "configured-keys.h"

#include <host/configuration.h>

#include <stdexcept>

namespace host {
namespace {

Setting needed(const std::string& name, const std::string& why) {
    if (auto value = setting(name)) return *value;
    throw std::runtime_error(why + ", but " + name + " is not configured");
}

} // namespace

KeyPair ownKeys() { return readKeys(needed("keys.file", "connections to other hosts need this machine's keys").text); }

std::string keyOfService(const std::string& service, const std::string& endpoint) {
    const std::string name = "keys.services." + service;
    const Setting key = needed(name, "service " + service + " is at " + endpoint + " and must prove its key");
    checkKey(key.text, key.origin + ": " + name);
    return key.text;
}

std::set<std::string> keysOfClients(const std::string& service, const std::string& endpoint) {
    const Setting listed =
        needed("keys.clients", "service " + service + " is offered at " + endpoint + " to known clients only");
    std::set<std::string> keys;
    for (const std::string& key : itemsOf(listed)) {
        checkKey(key, listed.origin + ": keys.clients");
        keys.insert(key);
    }
    if (keys.empty()) throw std::runtime_error(listed.origin + ": keys.clients: names no client");
    return keys;
}

} // namespace host
