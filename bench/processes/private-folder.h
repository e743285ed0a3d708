// A private folder for the sockets and state of this run. The host platform finds it through the environment.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace bench {

class PrivateFolder {
public:
    // Throws std::system_error.
    PrivateFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "tvsa-bench-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::system_error(errno, std::generic_category(), name);
        path_ = name;
        setenv("RUNTIME_DIRECTORY", name.c_str(), 1);
        setenv("STATE_DIRECTORY", name.c_str(), 1);
    }
    ~PrivateFolder() {
        std::error_code ignored; // files that cannot be removed stay in the temporary folder
        std::filesystem::remove_all(path_, ignored);
    }
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

} // namespace bench
