// The contact sheet: an HTML page with the requests of each step and the pictures after it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace demo {

struct Outcome {
    std::string request, result, time;
};

// What a terminal showed at the end of a step.
struct Picture {
    std::string terminal, name, details;
    std::string png; // empty: nothing
};

struct Step {
    std::string title, remark;
    std::vector<Outcome> outcomes;
    std::vector<Picture> pictures;
};

std::string sheetOf(const std::vector<Step>& steps);

// Throws receiver::ReceiverError when the file could not be written, before there is anything to write.
void checkWritable(const std::filesystem::path& file);
// Throws receiver::ReceiverError.
void write(const std::filesystem::path& file, const std::string& text);

} // namespace demo
