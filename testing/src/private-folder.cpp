#include "private-folder.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace tvtest {

void setPrivateStateFolder() {
    static const struct Folder {
        Folder() : path((std::filesystem::temp_directory_path() / "tvservice-adapter-test-XXXXXX").string()) {
            if (mkdtemp(path.data()) == nullptr) throw std::system_error(errno, std::generic_category(), path);
        }
        ~Folder() {
            std::error_code ignored; // nothing is left to report it to
            std::filesystem::remove_all(path, ignored);
        }
        std::string path;
    } folder;
    setenv("STATE_DIRECTORY", folder.path.c_str(), 1);
}

} // namespace tvtest
