#include "verbs.h"

#include "check-service.h"
#include "config.h"
#include "doctor.h"
#include "failure.h"
#include "interactive.h"
#include "keygen.h"
#include "play.h"
#include "schema.h"
#include "watch.h"

#include <algorithm>
#include <cerrno>
#include <iostream>

namespace tvctl {

const std::vector<Verb>& verbs() {
    static const std::vector<Verb> all{
        {"play", "shows something on terminals and waits for the result", runPlay},
        {"stop", "stops what terminals show and waits for the result", runStop},
        {"shell", "runs commands line by line", runShell},
        {"watch", "prints the notifications to the process's clients as they arrive", runWatch},
        {"schema", "prints all messages and records with their layout and meaning", runSchema, true, false},
        {"config", "prints the settings of a process started here, and where they come from", runConfig, true, false},
        {"keygen", "makes the key pair that identifies this host to others", runKeygen, false, false},
        {"doctor", "finds problems of a receiver on this host, and lists who may connect where", runDoctor, false,
         false},
        {"check-service", "puts a running service through the rules that a receiver relies on", runCheckService, true,
         false},
    };
    return all;
}

const Verb* findVerb(std::string_view name) {
    const auto found =
        std::find_if(verbs().begin(), verbs().end(), [&](const Verb& verb) { return name == verb.name; });
    return found == verbs().end() ? nullptr : &*found;
}

int run(const Verb& verb, const Options& options, const std::vector<std::string>& arguments) {
    if (!options.targetGiven || verb.targeted) return verb.run(options, arguments);
    return report(std::cerr, options.json, {exitUsage, -EINVAL},
                  "--target: " + std::string(verb.name) + " asks no process; leave the option out");
}

} // namespace tvctl
