#include "config.h"

#include "failure.h"
#include "table.h"

#include <host/configuration.h>
#include <host/printable.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <iostream>
#include <nlohmann/json.hpp>

namespace tvctl {
namespace {

using Json = nlohmann::ordered_json;

std::string asJson(const std::vector<host::NamedSetting>& settings, const std::vector<host::ConfigurationFile>& files) {
    Json result{{"settings", Json::array()}, {"files", Json::array()}};
    for (const auto& [name, variable, help, value] : settings)
        result["settings"].push_back({{"name", name},
                                      {"variable", variable},
                                      {"help", help},
                                      {"value", value ? Json(value->text) : Json()},
                                      {"origin", value ? Json(value->origin) : Json()}});
    for (const auto& [path, found] : files) result["files"].push_back({{"path", path}, {"found", found}});
    return result.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

std::string asText(const std::vector<host::NamedSetting>& settings, const std::vector<host::ConfigurationFile>& files) {
    std::vector<Row> rows{{"SETTING", "VALUE", "FROM"}};
    for (const auto& setting : settings)
        rows.push_back(setting.value ? Row{host::printable(setting.name), host::printable(setting.value->text),
                                           host::printable(setting.value->origin)}
                                     : Row{host::printable(setting.name), "-", "-"});
    std::string text;
    for (const std::string& line : aligned(rows)) text += line + '\n';
    text += '\n';
    for (const auto& file : files) text += (file.found ? "read     " : "missing  ") + host::printable(file.path) + '\n';
    return text;
}

} // namespace

int runConfig(const Options& given, const std::vector<std::string>& arguments) {
    Options options = given;
    CLI::App app(
        "Prints each setting of a process started here, its value and where it comes from: an environment variable,\n"
        "a line of a file, or the built-in default. \"-\" marks a setting without a value. Needs no receiver.",
        "tvctl config");
    app.add_flag("--json", options.json, "As one JSON object, for programs");
    std::vector<std::string> names;
    app.add_option("NAME", names, "Settings to print, such as queue.messages; all by default");
    if (const auto exitCode = parseArguments(app, arguments)) return *exitCode;
    try {
        auto settings = host::settings();
        for (const auto& name : names)
            if (std::ranges::find(settings, name, &host::NamedSetting::name) == settings.end())
                return report(std::cerr, options.json, {exitUsage, -EINVAL},
                              "there is no setting " + name + ", or it is not set; tvctl config lists all");
        if (!names.empty())
            std::erase_if(settings,
                          [&](const auto& setting) { return std::ranges::find(names, setting.name) == names.end(); });
        const auto files = host::configurationFiles();
        std::cout << (options.json ? asJson(settings, files) : asText(settings, files));
    } catch (const host::ConfigurationError& error) {
        return report(std::cerr, options.json, {exitBadData, -EBADMSG}, error.what());
    }
    return finish(std::cout, std::cerr, options.json);
}

} // namespace tvctl
