#include "log-levels/levels.h"

#include <host/log-levels.h>
#include <vdl/debug.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <thread-safety/mutex.h>
#include <vector>

// The default applies as soon as the library is loaded, before any code runs.
#define VDL_DEFAULT_4 vdlDebugWarning, vdlDebugWarning, vdlDebugWarning, vdlDebugWarning
#define VDL_DEFAULT_16 VDL_DEFAULT_4, VDL_DEFAULT_4, VDL_DEFAULT_4, VDL_DEFAULT_4
#define VDL_DEFAULT_64 VDL_DEFAULT_16, VDL_DEFAULT_16, VDL_DEFAULT_16, VDL_DEFAULT_16
#define VDL_DEFAULT_256 VDL_DEFAULT_64, VDL_DEFAULT_64, VDL_DEFAULT_64, VDL_DEFAULT_64
constinit std::atomic<std::uint16_t> vdlDebugLevels[vdlDebugModules] = {VDL_DEFAULT_256, VDL_DEFAULT_256,
                                                                        VDL_DEFAULT_256, VDL_DEFAULT_256};

namespace host::debug {
namespace {

// The levels that were set, which decide what is printed. Those in vdlDebugLevels are not lower than the level up to
// which lines are recorded.
constinit std::atomic<std::uint16_t> printed[vdlDebugModules] = {VDL_DEFAULT_256, VDL_DEFAULT_256, VDL_DEFAULT_256,
                                                                 VDL_DEFAULT_256};
constinit std::atomic<std::uint16_t> recorded{0};

// With the mutex of wanted held.
void setLevel(std::uint32_t module, std::uint16_t level) {
    printed[module] = level;
    vdlDebugLevels[module] = std::max(level, recorded.load());
}

// Every line reads this without the mutex; a name never changes once it is set.
constinit std::atomic<const char*> names[vdlDebugModules] = {};

constexpr std::size_t mostNames = 256;

// The names in a receiver's processes. One environment variable often sets the levels of all of them.
constexpr std::string_view ofAReceiver[] = {
    "adapter", "resource-manager", "registrar", "tv-proxy", "mm-proxy", "service", "control", "frame", "io",
    "vdl",     "runlog",           "shell"};

struct Wanted {
    using Levels = std::map<std::string, std::uint16_t, std::less<>>;
    thread_safety::Mutex mutex; // also serialises changes of names and levels
    // At most mostNames, because shell clients can set levels for any number of unknown names.
    Levels byName TVSA_GUARDED_BY(mutex);
};

Wanted& wanted() {
    static Wanted& instance = *new Wanted;
    return instance;
}

struct Item {
    enum class Target { all, number, name } target;
    std::uint32_t module = 0;
    std::string name;
    std::uint16_t level = 0;
};

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

template <typename Number> std::optional<Number> number(std::string_view text, int base) {
    Number value{};
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc() || rest != end) return std::nullopt;
    return value;
}

std::optional<std::uint16_t> levelOf(std::string_view text) {
    static constexpr struct {
        std::string_view name;
        std::uint16_t level;
    } levels[] = {{"off", 0},
                  {"failure", vdlDebugFailure},
                  {"error", vdlDebugFailure},
                  {"warning", vdlDebugWarning},
                  {"info", vdlDebugProgress},
                  {"progress", vdlDebugProgress},
                  {"trace", vdlDebugTrace}};
    for (const auto& level : levels)
        if (text == level.name) return level.level;
    return number<std::uint16_t>(text, 10);
}

// Parses one item. Returns the error, or an empty string.
std::string parse(std::string_view text, Item& item) {
    const std::string quoted = "\"" + std::string(text) + "\": ";
    const auto equals = text.find('=');
    const std::string_view level = equals == std::string_view::npos ? text : trimmed(text.substr(equals + 1));
    const auto value = levelOf(level);
    if (!value)
        return quoted + "\"" + std::string(level) +
               "\" is not a level (off, failure, error, warning, info, progress, trace or a number up to 65535)";
    item.level = *value;
    if (equals == std::string_view::npos) {
        item.target = Item::Target::all;
        return {};
    }
    const std::string_view module = trimmed(text.substr(0, equals));
    if (module.empty()) return quoted + "a module is missing before the =";
    if (module.starts_with("0x")) {
        const auto value = number<std::uint32_t>(module.substr(2), 16);
        if (!value || *value >= vdlDebugModules)
            return quoted + "\"" + std::string(module) + "\" is not a module number (0x0 to 0x3ff)";
        item.target = Item::Target::number;
        item.module = *value;
    } else {
        item.target = Item::Target::name;
        item.name = module;
    }
    return {};
}

// Parses text into items. Returns one line for each invalid item, or an empty string.
std::string parseAll(std::string_view text, std::vector<Item>& items) {
    std::string errors;
    if (trimmed(text).empty()) return errors;
    for (std::size_t start = 0; start <= text.size();) {
        const std::size_t end = std::min(text.find(',', start), text.size());
        Item item{Item::Target::all, 0, {}, 0};
        if (const std::string error = parse(trimmed(text.substr(start, end - start)), item); error.empty())
            items.push_back(std::move(item));
        else
            errors += (errors.empty() ? "" : "\n") + error;
        start = end + 1;
    }
    return errors;
}

// Returns an empty string, or an error; nothing has changed then.
std::string apply(const std::vector<Item>& items) {
    thread_safety::LockGuard lock(wanted().mutex);
    Wanted::Levels byName = wanted().byName;
    for (const Item& item : items)
        if (item.target == Item::Target::all)
            byName.clear();
        else if (item.target == Item::Target::name)
            byName.insert_or_assign(item.name, item.level);
    if (byName.size() > mostNames)
        return "more than " + std::to_string(mostNames) +
               " modules would have a level by name; first set one for all modules, which removes the named ones";
    wanted().byName.swap(byName);
    for (const Item& item : items) {
        switch (item.target) {
            case Item::Target::all:
                for (std::uint32_t module = 0; module < vdlDebugModules; ++module) setLevel(module, item.level);
                break;
            case Item::Target::number:
                setLevel(item.module, item.level);
                break;
            case Item::Target::name:
                for (std::uint32_t module = 0; module < vdlDebugModules; ++module)
                    if (const char* name = nameOfModule(module); name && item.name == name)
                        setLevel(module, item.level);
                break;
        }
    }
    return {};
}

std::set<std::string> namesOfModules() {
    std::set<std::string> names;
    for (std::uint32_t module = 0; module < vdlDebugModules; ++module)
        if (const char* name = nameOfModule(module)) names.insert(name);
    return names;
}

std::string listOf(const std::set<std::string>& names) {
    std::string list;
    for (const auto& name : names) list += (list.empty() ? "" : ", ") + name;
    return list;
}

std::string noModuleText(const std::set<std::string>& unknown, const std::set<std::string>& known) {
    return "no module of this process has the name " + listOf(unknown) + "; it has " + listOf(known);
}

} // namespace

std::string levelErrors(std::string_view text) {
    std::vector<Item> items;
    return parseAll(text, items);
}

std::string setValidLevels(std::string_view text) {
    std::vector<Item> items;
    std::string errors = parseAll(text, items);
    if (const std::string error = apply(items); !error.empty()) errors += (errors.empty() ? "" : "\n") + error;
    return errors;
}

void recordUpTo(std::uint16_t level) {
    thread_safety::LockGuard lock(wanted().mutex);
    recorded = level;
    for (std::uint32_t module = 0; module < vdlDebugModules; ++module) setLevel(module, printed[module]);
}

bool isRecorded(std::uint32_t levelWord) noexcept {
    return (levelWord & 0xFFFF) <= recorded.load(std::memory_order_relaxed);
}

bool isPrinted(std::uint32_t levelWord) noexcept {
    return recorded.load(std::memory_order_relaxed) == 0 ||
           (levelWord & 0xFFFF) <= printed[(levelWord >> 16) % vdlDebugModules].load(std::memory_order_relaxed);
}

const char* nameOfModule(std::uint32_t module) noexcept {
    return names[module % vdlDebugModules].load(std::memory_order_acquire);
}

} // namespace host::debug

void vdlDebugNameModule(std::uint32_t module, const char* name) {
    using namespace host::debug;
    if (module >= vdlDebugModules || !name || !*name) return;
    thread_safety::LockGuard lock(wanted().mutex);
    if (nameOfModule(module)) return;
    const char* const copy = strdup(name); // never freed: lines of other threads may use it at any time
    if (!copy) return;
    names[module].store(copy, std::memory_order_release);
    if (const auto level = wanted().byName.find(std::string_view(name)); level != wanted().byName.end())
        setLevel(module, level->second);
}

std::string vdlDebugSetLevels(const std::string& text) {
    using namespace host::debug;
    std::vector<Item> items;
    const std::string errors = parseAll(text, items);
    return errors.empty() ? apply(items) : errors;
}

std::string host::setLogLevels(const std::string& levels) {
    using namespace host::debug;
    const std::set<std::string> known = namesOfModules();
    std::set<std::string> unknown;
    std::vector<Item> items;
    if (std::string errors = parseAll(levels, items); !errors.empty()) return errors;
    if (items.empty()) return "expected MODULE=LEVEL; the modules are " + listOf(known);
    for (const Item& item : items)
        if (item.target == Item::Target::name && !known.contains(item.name)) unknown.insert(item.name);
    if (!unknown.empty()) return noModuleText(unknown, known);
    return apply(items);
}

std::string host::unknownLogModules() {
    using namespace host::debug;
    const std::set<std::string> known = namesOfModules();
    std::set<std::string> unknown;
    thread_safety::LockGuard lock(wanted().mutex);
    for (const auto& [name, level] : wanted().byName)
        if (!known.contains(name) && std::ranges::find(ofAReceiver, name) == std::end(ofAReceiver))
            unknown.insert(name);
    return unknown.empty() ? "" : noModuleText(unknown, known);
}
