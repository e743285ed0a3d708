// Reads the body of a message by its layout. Whatever the bytes are, time and memory are bounded by their number.
#pragma once

#include "parsed-schema.h"

#include <bit>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

namespace recording {

using Json = nlohmann::ordered_json;

// Whether the names of numbers follow them: {"track":1,"trackName":"second programme"}.
enum class Numbers { plain, named };

// The text begins with the path of the field.
class BodyError : public std::runtime_error {
public:
    explicit BodyError(const std::string& problem) : runtime_error(problem), problem_(problem) {}
    BodyError(const BodyError& inner, const std::string& step)
        : runtime_error(step + pathOf(inner) + ": " + inner.problem_),
          problem_(inner.problem_),
          path_(step + pathOf(inner)) {}

private:
    static std::string pathOf(const BodyError& error) {
        return error.path_.empty() || error.path_.front() == '[' ? error.path_ : "." + error.path_;
    }

    std::string problem_, path_;
};

class BodyReader {
public:
    BodyReader(std::string_view body, std::endian order, Numbers numbers)
        : body_(body), order_(order), numbers_(numbers) {}

    // The arguments by name. Throws BodyError. To be called once.
    Json read(const Layout& arguments);

private:
    Json record(const Layout& layout, std::size_t at);
    Json value(const LayoutField& field, std::size_t at);
    Json scalar(const LayoutField& field, std::size_t at) const;
    Json string(std::size_t at);
    Json list(const LayoutField& field, std::size_t at);
    Json element(const LayoutField& list, std::size_t at);
    std::size_t block(std::size_t offset, std::size_t size);
    std::uint32_t word(std::size_t at) const;

    std::string_view body_;
    std::endian order_;
    Numbers numbers_;
    std::size_t next_ = 0; // where the next block must begin
    int depth_ = 0;
};

} // namespace recording
