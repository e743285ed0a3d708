// Gives each test its own configuration files and clears all configuration variables.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

class ConfigurationFolder : public testing::Test {
protected:
    ConfigurationFolder() {
        std::vector<std::string> names{"XDG_CONFIG_HOME", "HOME"};
        for (char** entry = environ; *entry != nullptr; ++entry)
            if (const std::string text = *entry; text.starts_with("TVSA_"))
                names.push_back(text.substr(0, text.find('=')));
        for (const std::string& name : names) unsetenv(name.c_str());
        char pattern[] = "/tmp/configuration-XXXXXX";
        folder = mkdtemp(pattern);
    }
    ~ConfigurationFolder() override { std::filesystem::remove_all(folder); }

    // Returns the file's path.
    std::string write(const std::string& name, const std::string& text, mode_t mode = 0644) const {
        const std::filesystem::path path = std::filesystem::path(folder) / name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << text;
        EXPECT_EQ(chmod(path.c_str(), mode), 0);
        return path.string();
    }
    // Makes this the only configuration file in use.
    std::string configure(const std::string& text, mode_t mode = 0644) const {
        std::string path = write("config.toml", text, mode);
        setenv("TVSA_CONFIG", path.c_str(), 1);
        return path;
    }

    std::string folder;
};
