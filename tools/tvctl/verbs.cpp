#include "verbs.h"

#include "capture-info.h"
#include "check-service.h"
#include "config.h"
#include "doctor.h"
#include "failure.h"
#include "interactive.h"
#include "keygen.h"
#include "look.h"
#include "monitor.h"
#include "play.h"
#include "record.h"
#include "schema.h"
#include "watch.h"

#include <algorithm>
#include <cerrno>
#include <iostream>

namespace tvctl {

const std::vector<Verb>& verbs() {
    static const std::vector<Verb> all{
        {.name = "play", .help = "shows something on terminals and waits for the result", .run = runPlay},
        {.name = "stop", .help = "stops what terminals show and waits for the result", .run = runStop},
        {.name = "shell", .help = "runs commands line by line", .run = runShell},
        {.name = "watch", .help = "prints the notifications to the process's clients as they arrive", .run = runWatch},
        {.name = "monitor",
         .help = "prints the messages and other events of all processes as they happen, or of a recording",
         .run = runMonitor,
         .targeted = false},
        {.name = "record",
         .help = "writes the events of all processes into a file",
         .run = runRecord,
         .targeted = false},
        {.name = "capture-info",
         .help = "says what a recording contains",
         .run = runCaptureInfo,
         .configured = false,
         .targeted = false},
        {.name = "screenshot", .help = "writes the picture on a terminal to a file", .run = runScreenshot},
        {.name = "level", .help = "prints how loud a terminal is, and its loudest tone", .run = runLevel},
        {.name = "schema",
         .help = "prints all messages and records with their layout and meaning",
         .run = runSchema,
         .targeted = false},
        {.name = "config",
         .help = "prints the settings of a process started here, and where they come from",
         .run = runConfig,
         .targeted = false},
        {.name = "keygen",
         .help = "makes the key pair that identifies this host to others",
         .run = runKeygen,
         .configured = false,
         .targeted = false},
        {.name = "doctor",
         .help = "finds problems of a receiver on this host, and lists who may connect where",
         .run = runDoctor,
         .configured = false,
         .targeted = false},
        {.name = "check-service",
         .help = "puts a running service through the rules that a receiver relies on",
         .run = runCheckService,
         .targeted = false},
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
