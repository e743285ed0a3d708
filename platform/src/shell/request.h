// What a client asks of a shell, and text in its answers. No trees of JSON are made: they take memory when they go, and
// without it the process would end.
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

// Reads a line of JSON; false when it is none. Of a member that is there twice the last one counts. Throws
// std::bad_alloc.
bool readRequest(std::string_view text, Request& request);

// The text as JSON has it, with its quotation marks. Bytes that are no UTF-8 are replaced, so that it stays JSON.
std::string quoted(const std::string& text);

} // namespace appovshell
