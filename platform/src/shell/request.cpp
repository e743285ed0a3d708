#include "request.h"

#include <cstddef>
#include <nlohmann/json.hpp>
#include <utility>

namespace appovshell {
namespace {

using Member = Request::Member;

class Reader final : public nlohmann::json_sax<nlohmann::json> {
public:
    explicit Reader(Request& request) : request_(request) {}

    bool null() override { return other(); }
    bool number_integer(number_integer_t) override { return other(); }
    bool number_unsigned(number_unsigned_t) override { return other(); }
    bool number_float(number_float_t, const string_t&) override { return other(); }
    bool binary(binary_t&) override { return other(); }
    bool boolean(bool value) override {
        if (!isMember("json")) return other();
        request_.jsonMember = Member::Fits;
        request_.json = value;
        return true;
    }
    bool string(string_t& text) override {
        if (isMember("line")) {
            request_.lineMember = Member::Fits;
            request_.line = std::move(text);
        } else if (isWord()) {
            request_.words.push_back(std::move(text));
        } else {
            return other();
        }
        return true;
    }
    bool start_object(std::size_t) override {
        if (depth_ == 0)
            request_.isObject = true;
        else
            other();
        ++depth_;
        return true;
    }
    bool start_array(std::size_t) override {
        if (isMember("words")) {
            request_.wordsMember = Member::Fits;
            request_.words.clear();
            inWords_ = true;
        } else {
            other();
        }
        ++depth_;
        return true;
    }
    bool key(string_t& name) override {
        if (depth_ == 1) member_ = std::move(name);
        return true;
    }
    bool end_object() override { return end(); }
    bool end_array() override { return end(); }
    bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception&) override { return false; }

private:
    bool isMember(const char* name) const { return depth_ == 1 && member_ == name; }
    bool isWord() const { return depth_ == 2 && inWords_; }
    // A value of an unexpected type or in an unexpected position.
    bool other() {
        if (isMember("json")) request_.jsonMember = Member::OfAnotherType;
        if (isMember("line")) request_.lineMember = Member::OfAnotherType;
        if (isMember("words") || isWord()) request_.wordsMember = Member::OfAnotherType;
        return true;
    }
    bool end() {
        if (--depth_ == 1) inWords_ = false;
        return true;
    }

    Request& request_;
    std::string member_; // of the outermost object: the one whose value follows
    unsigned depth_ = 0; // number of open objects and arrays
    bool inWords_ = false;
};

} // namespace

bool readRequest(std::string_view text, Request& request) {
    Reader reader(request);
    return nlohmann::json::sax_parse(text, &reader);
}

std::string quoted(const std::string& text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace appovshell
