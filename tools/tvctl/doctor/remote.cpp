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

// What is wrong with this machine's own keys.
std::optional<std::string> problemOfOwnKeys() {
    const auto file = host::setting("keys.file");
    if (!file) return "not configured, so that this machine cannot prove who it is";
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
        diagnosis.wrong(subject, error.what(), "put there what tvctl keygen printed on the other machine");
        return false;
    }
}

// For who offers the service, at an address that its process can have; perhaps it is used from here, too.
void checkOffer(Diagnosis& diagnosis, const Service& service, const std::string& endpoint, const host::Place& place,
                const host::Setting& clients, bool used) {
    std::set<std::string> keys;
    for (const std::string& key : host::itemsOf(clients))
        if (isKey(diagnosis, "keys.clients", key, clients.origin) && !keys.insert(key).second)
            diagnosis.warn("keys.clients", clients.origin + " has a key twice: " + key, "remove one");
    if (keys.empty())
        return diagnosis.wrong("keys.clients", clients.origin + " names no client, so that nobody can come",
                               "name the public keys of the clients");
    const std::string holders =
        keys.size() == 1 ? "the holder of one key" : "the holders of " + std::to_string(keys.size()) + " keys";
    const auto listener = listenerAt(place);
    if (listener && *listener != geteuid()) {
        const std::string process = "a process of user " + std::to_string(*listener);
        diagnosis.entryPoints.push_back({endpoint, "unknown", process + " listens here"});
        return diagnosis.wrong(service.name, endpoint + " is served by " + process, "end that process");
    }
    diagnosis.ok(service.name, "where it is offered at " + endpoint + ", " + holders + " may come");
    diagnosis.entryPoints.push_back({endpoint, holders, listener ? "a process listens here" : "nobody listens here"});
    // Only who holds a key that it lets in, and knows its own, can ask it.
    if (listener && !used)
        diagnosis.ok(service.name, "its messages are not compared here, but by tvctl doctor where it is used");
    if (portOf(place) == 0)
        diagnosis.warn(service.name, endpoint + " has another port after each start, which no client can know",
                       "name the port in endpoints." + service.name);
    else if (!listener)
        diagnosis.warn(service.name, "not running: nobody listens at " + endpoint, "start it");
    if (host::isEveryAddress(place.host))
        diagnosis.warn(service.name, endpoint + " is at every address of this machine, in all its networks",
                       "name the address that clients use");
}

// For who uses it.
void checkUse(Diagnosis& diagnosis, const Service& service, const std::string& endpoint, const host::Setting& key,
              std::chrono::milliseconds timeout) {
    if (!isKey(diagnosis, "keys.services." + service.name, key.text, key.origin)) return;
    if (problemOfOwnKeys())
        return diagnosis.warn(service.name, endpoint + " was not tried, for want of keys", "mend keys.file first");
    if (const auto failure = failureOfAttempt(service, timeout))
        diagnosis.wrong(service.name, *failure, "compare keys, addresses and versions on both machines");
    else
        diagnosis.ok(service.name, endpoint + " has the right key, lets this machine in and has the same messages");
}

} // namespace

Diagnosis checkRemoteService(const Service& service, const std::string& endpoint, std::chrono::milliseconds timeout) {
    Diagnosis diagnosis;
    const std::string nameOfKey = "keys.services." + service.name, nameOfEndpoint = "endpoints." + service.name;
    const auto clients = host::setting("keys.clients"), key = host::setting(nameOfKey);
    const bool everywhere = host::isEveryAddress(host::placeOf(service.name, endpoint).host);
    if (clients) {
        try {
            checkOffer(diagnosis, service, endpoint, host::placeToServeAt(service.name, endpoint), *clients,
                       key.has_value());
        } catch (const std::runtime_error& error) {
            // With a key it is a service elsewhere, which this machine uses beside those that it offers.
            if (!key)
                diagnosis.wrong(service.name, error.what(),
                                "name an address of this machine in " + nameOfEndpoint +
                                    ", or, to use it elsewhere, its key in " + nameOfKey);
        }
    }
    if (key && everywhere)
        diagnosis.wrong(service.name, endpoint + " is an address to listen at, and none to connect to",
                        "name the host in " + nameOfEndpoint);
    else if (key)
        checkUse(diagnosis, service, endpoint, *key, timeout);
    if (!clients && (!key || everywhere))
        diagnosis.wrong(service.name,
                        endpoint + " is without keys: keys.clients is not configured" +
                            (key ? "" : ", and neither is " + nameOfKey),
                        "name the clients' keys where the service is, and the service's where its clients are");
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
            diagnosis.warn(name, "not used, as no service is at a tcp:// address", "remove it, or set the endpoint");
        return diagnosis;
    }
    if (const auto problem = problemOfOwnKeys())
        diagnosis.wrong("keys.file", *problem, "make a new pair with tvctl keygen, and name its file in keys.file");
    else
        diagnosis.ok("keys.file",
                     "the public key of this machine is " + host::readKeys(host::setting("keys.file")->text).publicKey);
    return diagnosis;
}

} // namespace tvctl::doctor
