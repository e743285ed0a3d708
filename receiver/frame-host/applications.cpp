#include "applications.h"

#include <host/printable.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace frame_host {
namespace {

using std::filesystem::path;

constexpr std::string_view adapter = FRAME_HOST_ADAPTER;
constexpr std::string_view prefix = "lib", suffix = "-application.so";

bool isPath(std::string_view application) {
    return application.find('/') != std::string_view::npos || application.ends_with(".so");
}

std::string joined(const std::vector<std::string>& items, const char* separator) {
    std::string text;
    for (const std::string& item : items) text += (text.empty() ? "" : separator) + item;
    return text;
}

std::string applicationsIn(const path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::string file = entry.path().filename().string();
        if (file.size() > prefix.size() + suffix.size() && file.starts_with(prefix) && file.ends_with(suffix))
            names.push_back(file.substr(prefix.size(), file.size() - prefix.size() - suffix.size()));
    }
    std::sort(names.begin(), names.end());
    return names.empty() ? "none" : joined(names, ", ");
}

path folderWithAdapter(const std::vector<path>& folders) {
    std::vector<std::string> searched;
    for (const path& folder : folders) {
        if (std::filesystem::exists(folder / adapter)) return folder;
        searched.push_back(folder.string());
    }
    throw std::runtime_error("--application: no " + std::string(adapter) + " in " + joined(searched, " or ") +
                             "; install it, or give the paths of all libraries without --application");
}

std::string pathOf(const std::string& application, const path& folder) {
    if (isPath(application)) return application;
    const path file = std::string(prefix) + application + std::string(suffix);
    if (std::filesystem::exists(folder / file)) return (folder / file).string();
    throw std::runtime_error("--application: no " + host::printable(file.string()) + " in " + folder.string() +
                             "; the applications there are: " + applicationsIn(folder));
}

} // namespace

std::vector<path> moduleFolders() {
    const path own = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    std::vector<path> folders;
    for (const char* folder : {FRAME_HOST_INSTALLED_MODULES, FRAME_HOST_BUILT_MODULES})
        folders.push_back((own / folder).lexically_normal());
    return folders;
}

std::vector<std::string> librariesToLoad(std::vector<std::string> libraries,
                                         const std::vector<std::string>& applications,
                                         const std::vector<path>& folders) {
    if (applications.empty()) return libraries;
    const bool hasAdapter = std::any_of(libraries.begin(), libraries.end(),
                                        [](const std::string& library) { return path(library).filename() == adapter; });
    const bool allArePaths = std::all_of(applications.begin(), applications.end(), isPath);
    const path folder = hasAdapter && allArePaths ? path() : folderWithAdapter(folders);
    if (!hasAdapter) libraries.push_back((folder / adapter).string());
    for (const std::string& application : applications) libraries.push_back(pathOf(application, folder));
    return libraries;
}

} // namespace frame_host
