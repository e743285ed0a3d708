// A shell client's request, and text in answers. No JSON trees are built: destroying one allocates memory, and the
// process would end without it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace appovshell {

struct Request {
    enum class Member { Missing, Fits, OfAnotherType };

    bool isObject = false;
    Member jsonMember = Member::Missing, lineMember = Member::Missing, wordsMember = Member::Missing;
    bool json = false;
    std::string line;
    std::vector<std::string> words;
};

// Parses a line of JSON. Returns false when it is malformed. The last of duplicate members counts. Throws
// std::bad_alloc.
bool readRequest(std::string_view text, Request& request);

// The text as a JSON string with its quotation marks. Invalid UTF-8 is replaced, so that it stays valid JSON.
std::string quoted(const std::string& text);

} // namespace appovshell
