#include "base/file-descriptor.h"

#include <host/toml-file.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace host {
namespace {

[[noreturn]] void fail(const std::string& path, const std::string& problem) {
    throw TomlFileError(path + ": " + problem);
}

[[noreturn]] void failToRead(const std::string& path) {
    fail(path, "cannot be read: " + std::generic_category().message(errno));
}

// Counts open brackets and the dots of keys. For text that is not TOML, the depth is at least that of the parser.
class Nesting {
public:
    explicit Nesting(std::string_view text) : rest_(text) {}

    // The line that is nested too deeply, or 0.
    int tooDeepAt() {
        while (!rest_.empty()) {
            const char c = rest_.front();
            if (c == '"' || c == '\'') {
                skipString(c);
                continue;
            }
            if (c == '#')
                skipComment();
            else
                take(c);
            if (depth_ > deepestToml) return line_;
        }
        return 0;
    }

private:
    void take(char c) {
        rest_.remove_prefix(1);
        if (c == '[' || c == '{') {
            open_.push_back(depth_++);
        } else if ((c == ']' || c == '}') && !open_.empty()) {
            depth_ = open_.back();
            open_.pop_back();
        } else if (c == '.') { // also that of a number, which counts as a key of two parts
            ++depth_;
        } else if (c == ',' || c == '\n') { // a new key or value begins
            depth_ = open_.empty() ? 0 : open_.back() + 1;
        }
        line_ += c == '\n';
    }

    void skipComment() { rest_.remove_prefix(std::min(rest_.find('\n'), rest_.size())); }

    void skipString(char quote) {
        const std::string three(3, quote);
        const bool long_ = rest_.starts_with(three);
        rest_.remove_prefix(long_ ? 3 : 1);
        while (!rest_.empty()) {
            const char c = rest_.front();
            if (c == quote && (!long_ || rest_.starts_with(three))) return skipEnd(quote, long_);
            if (c == '\n' && !long_) return;       // the parser rejects it
            if (c == '\\' && quote == '"') skip(); // an escaped character ends nothing
            skip();
        }
    }

    // A long string ends with the last three of the quotes at its end; up to two quotes before them belong to it.
    void skipEnd(char quote, bool long_) {
        const std::size_t quotes = std::min(rest_.find_first_not_of(quote), rest_.size());
        rest_.remove_prefix(long_ ? std::min<std::size_t>(quotes, 5) : 1);
    }

    void skip() {
        if (rest_.empty()) return;
        line_ += rest_.front() == '\n';
        rest_.remove_prefix(1);
    }

    std::string_view rest_;
    int line_ = 1;
    unsigned depth_ = 0;
    std::vector<unsigned> open_; // the depth before each open bracket; at most deepestToml + 1 of them
};

} // namespace

std::optional<TomlFile> readTomlFile(const std::string& path) {
    const io::FileDescriptor descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!descriptor && (errno == ENOENT || errno == ENOTDIR)) return std::nullopt;
    struct stat status {};
    if (!descriptor || fstat(descriptor.get(), &status) != 0) failToRead(path);
    if (!S_ISREG(status.st_mode) && !S_ISCHR(status.st_mode)) fail(path, "not a file");
    TomlFile file{{}, (status.st_mode & 022) != 0};
    char buffer[4096];
    for (ssize_t got; (got = ::read(descriptor.get(), buffer, sizeof buffer)) != 0;) {
        if (got < 0 && errno != EINTR) failToRead(path);
        if (got > 0) file.text.append(buffer, static_cast<std::size_t>(got));
        if (file.text.size() > longestTomlFile) fail(path, "longer than " + std::to_string(longestTomlFile) + " bytes");
    }
    return file;
}

void checkTomlNesting(std::string_view text, const std::string& where) {
    if (const int line = Nesting(text).tooDeepAt())
        fail(where + ':' + std::to_string(line), "nested more than " + std::to_string(deepestToml) + " levels deep");
}

} // namespace host
