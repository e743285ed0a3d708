#include "condition-node.h"

#include <host/printable.h>

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace recording {
namespace {

constexpr std::size_t longestCondition = 4096;
constexpr int deepestCondition = 32;

using Node = Condition::Node;

bool isWordCharacter(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; }
// Of a value without quotes: -1.5, and names such as "done".
bool isValueCharacter(char c) { return isWordCharacter(c) || c == '-' || c == '+' || c == '.'; }

class Parser {
public:
    explicit Parser(const std::string& text) : text_(text) {}

    Node parse() {
        if (text_.size() > longestCondition)
            throw ConditionError("longer than " + std::to_string(longestCondition) + " characters");
        Node node = any();
        if (skip(); at_ < text_.size()) fail("wanted 'and', 'or' or the end");
        return node;
    }

private:
    Node any() {
        return joined(Node::Kind::any, "or", [this] { return all(); });
    }
    Node all() {
        return joined(Node::Kind::all, "and", [this] { return single(); });
    }

    template <class Part> Node joined(Node::Kind kind, std::string_view word, const Part& part) {
        Node first = part();
        if (!takeWord(word)) return first;
        Node node{.kind = kind, .parts = {}, .path = {}, .comparison = {}, .value = {}};
        node.parts.push_back(std::move(first));
        do node.parts.push_back(part());
        while (takeWord(word));
        return node;
    }

    Node single() {
        if (++depth_ > deepestCondition) fail("nested more than " + std::to_string(deepestCondition) + " levels deep");
        Node node;
        if (takeWord("not")) {
            node.kind = Node::Kind::negation;
            node.parts.push_back(single());
        } else if (take("(")) {
            node = any();
            if (!take(")")) fail("wanted ')'");
        } else {
            node = comparison();
        }
        --depth_;
        return node;
    }

    Node comparison() {
        Node node;
        do node.path.push_back(name());
        while (take("."));
        node.comparison = comparisonOperator();
        node.value = value();
        return node;
    }

    std::string name() {
        skip();
        const std::size_t begin = at_;
        while (at_ < text_.size() && isWordCharacter(text_[at_])) ++at_;
        if (at_ == begin) fail("wanted a name, such as infos.result");
        return text_.substr(begin, at_ - begin);
    }

    Operator comparisonOperator() {
        constexpr std::pair<const char*, Operator> operators[] = {
            {"==", Operator::equal},          {"!=", Operator::notEqual}, {"<=", Operator::lessOrEqual},
            {">=", Operator::greaterOrEqual}, {"<", Operator::less},      {">", Operator::greater},
            {"~", Operator::contains}};
        for (const auto& [sign, comparison] : operators)
            if (take(sign)) return comparison;
        fail("wanted ==, !=, <, >, <=, >= or ~");
    }

    Literal value() {
        if (skip(); at_ < text_.size() && (text_[at_] == '\'' || text_[at_] == '"')) return {quoted(), std::nullopt};
        const std::size_t begin = at_;
        while (at_ < text_.size() && isValueCharacter(text_[at_])) ++at_;
        if (at_ == begin) fail("wanted a value: a number, a name or a text in quotes");
        std::string text = text_.substr(begin, at_ - begin);
        char* end = nullptr;
        const double number = std::strtod(text.c_str(), &end);
        if (*end == '\0' && std::isfinite(number)) return {text, number};
        return {std::move(text), std::nullopt};
    }

    std::string quoted() {
        const std::size_t end = text_.find(text_[at_], at_ + 1);
        if (end == std::string::npos) fail("the text that begins here has no end");
        std::string text = text_.substr(at_ + 1, end - at_ - 1);
        at_ = end + 1;
        return text;
    }

    void skip() {
        while (at_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[at_])) != 0) ++at_;
    }
    bool take(std::string_view sign) {
        skip();
        if (text_.compare(at_, sign.size(), sign) != 0) return false;
        at_ += sign.size();
        return true;
    }
    bool takeWord(std::string_view word) {
        const std::size_t before = at_;
        if (take(word) && (at_ == text_.size() || !isWordCharacter(text_[at_]))) return true;
        at_ = before;
        return false;
    }

    [[noreturn]] void fail(const std::string& what) const {
        const std::string before = host::printable(text_.substr(0, at_));
        throw ConditionError(what + ", at character " + std::to_string(at_ + 1) + ":\n  " + before +
                             host::printable(text_.substr(at_)) + "\n  " + std::string(before.size(), ' ') + '^');
    }

    const std::string& text_;
    std::size_t at_ = 0;
    int depth_ = 0;
};

} // namespace

Condition::Node parseCondition(const std::string& text) { return Parser(text).parse(); }

} // namespace recording
