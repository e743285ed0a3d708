#include "schema.h"

#include "failure.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <schema/schema.h>

namespace tvctl {

int runSchema(const Options& given, const std::vector<std::string>& arguments) {
    Options options = given;
    bool markdown = false;
    CLI::App app(
        "Prints all messages and records of both services: their layout, what each field means, and the names\nof "
        "numbers. Needs no receiver.",
        "tvctl schema");
    app.add_flag("--json", options.json, "As one JSON object with a version, for programs");
    app.add_flag("--markdown", markdown, "As docs/messages.md");
    if (const auto exitCode = parseArguments(app, arguments)) return *exitCode;
    if (options.json && markdown) {
        std::cerr << "tvctl: schema prints JSON or Markdown, not both\n";
        return exitUsage;
    }
    std::cout << (options.json ? schema::asJson() : markdown ? schema::asMarkdown() : schema::asText());
    return finish(std::cout, std::cerr, options.json);
}

} // namespace tvctl
