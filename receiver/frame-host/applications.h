// Finds the libraries to load: applications are named by what they are called, or by the path of their library.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace frame_host {

// The folders, relative to this program's, that may have the adapter and the applications: of an installation, and of a
// build.
std::vector<std::filesystem::path> moduleFolders();

// Returns the paths to load, in order: the libraries, then the applications, and before these the adapter unless it is
// one of the libraries. An application with a slash or ending in ".so" is a path; any other is the name of
// "lib<name>-application.so" in the first of the folders that has the adapter. Throws std::runtime_error with where it
// looked and which applications exist there.
std::vector<std::string> librariesToLoad(std::vector<std::string> libraries,
                                         const std::vector<std::string>& applications,
                                         const std::vector<std::filesystem::path>& folders);

} // namespace frame_host
