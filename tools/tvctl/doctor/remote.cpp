#include "attempt.h"
#include "listeners.h"

#include <host/configuration.h>
#include <host/endpoint.h>
#include <host/keys.h>

#include <set>
#include <stdexcept>
#include <unistd.h>

namespace tvctl::doctor {
namespace {

// The problem with this machine's own keys, if any.
std::optional<std::string> problemOfOwnKeys() {
    const auto file = host::setting("keys.file");
    if (!file) return "not configured, so this machine cannot prove its identity";
    try {
        (void)host::readKeys(file->text);
        return std::nullopt;
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

bool isKey(Diagnosis& diagnosis, const std::string& subject, const std::string& key, const std::string& origin) {
    try {
        host::checkKey(key, origin);
        return true;
    } catch (const std::runtime_error& error) {
        diagnosis.wrong(subject, error.what(), "set it to the key that tvctl keygen printed on the other machine");
        return false;
    }
}

// Checks the side that offers the service, at an address of this machine. used: whether this machine also uses the
// service.
void checkOffer(Diagnosis& diagnosis, const Service& service, const std::string& endpoint,
                const host::HostPort& hostPort, const host::Setting& clients, bool used) {
    std::set<std::string> keys;
    for (const std::string& key : host::itemsOf(clients))
        if (isKey(diagnosis, "keys.clients", key, clients.origin) && !keys.insert(key).second)
            diagnosis.warn("keys.clients", clients.origin + " has a key twice: " + key, "remove one");
    if (keys.empty())
        return diagnosis.wrong("keys.clients", clients.origin + " names no client, so nobody can connect",
                               "add the public keys of the clients");
    const std::string holders =
        keys.size() == 1 ? "the holder of one key" : "the holders of " + std::to_string(keys.size()) + " keys";
    const auto listener = listenerAt(hostPort);
    if (listener && *listener != geteuid()) {
        const std::string process = "a process of user " + std::to_string(*listener);
        diagnosis.entryPoints.push_back({endpoint, "unknown", process + " listens here"});
        return diagnosis.wrong(service.name, endpoint + " is served by " + process,
                               "choose another port in endpoints." + service.name);
    }
    diagnosis.ok(service.name, "offered at " + endpoint + "; " + holders + " may connect");
    diagnosis.entryPoints.push_back({endpoint, holders, listener ? "a process listens here" : "nobody listens here"});
    // The comparison needs a key that the service accepts, and the service's own key.
    if (listener && !used)
        diagnosis.ok(service.name, "its messages are not compared here; run tvctl doctor where it is used");
    if (portOf(hostPort) == 0)
        diagnosis.warn(service.name, endpoint + " gets another port with each start, which no client can know",
                       "set the port in endpoints." + service.name);
    else if (!listener)
        diagnosis.warn(service.name, "not running: nobody listens at " + endpoint, "start it");
    if (host::isAnyAddress(hostPort.host))
        diagnosis.warn(service.name, endpoint + " is at every address of this machine, in all its networks",
                       "set the address that clients use");
}

// Checks the side that uses the service.
void checkUse(Diagnosis& diagnosis, const Service& service, const std::string& endpoint, const host::Setting& key,
              std::chrono::milliseconds timeout) {
    if (!isKey(diagnosis, "keys.services." + service.name, key.text, key.origin)) return;
    if (problemOfOwnKeys())
        return diagnosis.warn(service.name, endpoint + " was not tried: this machine has no valid keys",
                              "fix keys.file first");
    if (const auto failure = tryToConnect(service, timeout))
        diagnosis.wrong(service.name, failure->reason, "compare keys, addresses and versions on both machines");
    else
        diagnosis.ok(service.name,
                     endpoint + " has the right key and the same messages, and accepts this machine's key");
}

} // namespace

Diagnosis checkRemoteService(const Service& service, const std::string& endpoint, std::chrono::milliseconds timeout) {
    Diagnosis diagnosis;
    const std::string nameOfKey = "keys.services." + service.name, nameOfEndpoint = "endpoints." + service.name;
    const auto clients = host::setting("keys.clients"), key = host::setting(nameOfKey);
    const bool everywhere = host::isAnyAddress(host::hostPortOf(service.name, endpoint).host);
    if (clients) {
        try {
            checkOffer(diagnosis, service, endpoint, host::listenAddressOf(service.name, endpoint), *clients,
                       key.has_value());
        } catch (const std::runtime_error& error) {
            // With a key, the service is on another machine, and this machine offers other services.
            if (!key)
                diagnosis.wrong(service.name, error.what(),
                                "set " + nameOfEndpoint +
                                    " to an address of this machine or, if the service is elsewhere, set " + nameOfKey +
                                    " to its key");
        }
    }
    if (key && everywhere)
        diagnosis.wrong(service.name, endpoint + " is an address to listen at, not to connect to",
                        "set the host in " + nameOfEndpoint);
    else if (key)
        checkUse(diagnosis, service, endpoint, *key, timeout);
    if (!clients && (!key || everywhere))
        diagnosis.wrong(
            service.name,
            endpoint + " has no keys: keys.clients is not configured" + (key ? "" : ", and neither is " + nameOfKey),
            "set the clients' keys where the service is, and the service's key where its clients are");
    return diagnosis;
}

Diagnosis checkKeys() {
    Diagnosis diagnosis;
    bool needed = false;
    std::vector<std::string> unused;
    for (const auto& setting : host::settings()) {
        if (!setting.value) continue;
        needed |= setting.name.starts_with("endpoints.") && host::isRemote(setting.value->text);
        if (setting.name.starts_with("keys.")) unused.push_back(setting.name);
    }
    if (!needed) {
        for (const std::string& name : unused)
            diagnosis.warn(name, "not used, because no service has a tcp:// address", "remove it, or set the endpoint");
        return diagnosis;
    }
    if (const auto problem = problemOfOwnKeys())
        diagnosis.wrong("keys.file", *problem, "make a new pair with tvctl keygen, and set keys.file to its file");
    else
        diagnosis.ok("keys.file",
                     "the public key of this machine is " + host::readKeys(host::setting("keys.file")->text).publicKey);
    return diagnosis;
}

} // namespace tvctl::doctor
