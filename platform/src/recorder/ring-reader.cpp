#include "base/file-descriptor.h"
#include "ring-layout.h"

#include <host/folders.h>
#include <host/ring-reader.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <system_error>

namespace host {
namespace {

using namespace recorder;

constexpr std::size_t mostRings = 256;
constexpr const char* ringNames[] = {".ring", ".ring.1", ".ring.killed"};
// A gibibyte: no process keeps as much. It bounds what a hostile file makes a reader look at.
constexpr std::uint64_t mostPages = 1024 * 1024 * 1024 / pageBytes;

template <std::size_t Size> std::string textIn(const char (&text)[Size]) { return {text, strnlen(text, Size)}; }

} // namespace

struct RingReader::State {
    explicit State(const std::string& name) : file(name), descriptor(open(name.c_str(), flags)) {
        if (!descriptor) fail(std::system_category().message(errno));
        struct stat status {};
        if (fstat(descriptor.get(), &status) != 0) fail(std::system_category().message(errno));
        if (!S_ISREG(status.st_mode)) fail("not a regular file");
        if (status.st_size < static_cast<off_t>(pageBytes)) fail("not a ring: it has no header");
        read(0, &header, sizeof header);
        if (std::memcmp(header.magic, ringMagic, sizeof ringMagic) != 0) fail("not a ring");
        if (header.byteOrder != ownByteOrder) fail("a ring of a machine with another byte order");
        if (header.version != ringVersion)
            fail("a ring of version " + std::to_string(header.version) + "; this program reads version " +
                 std::to_string(ringVersion));
        if (header.pageBytes != pageBytes || header.pages == 0 || header.pages > mostPages)
            fail("not a ring: its sizes cannot be");
        if (static_cast<std::uint64_t>(status.st_size) != (header.pages + 1) * pageBytes)
            fail("a ring that is cut off");
        skipTo(0);
        lost = 0; // what was overwritten before is no loss
    }

    static constexpr int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;

    [[noreturn]] void fail(const std::string& why) const { throw RingError(file + ": " + why); }

    void read(std::uint64_t offset, void* target, std::size_t size) const {
        const auto got = pread(descriptor.get(), target, size, static_cast<off_t>(offset));
        if (got < 0) fail(std::system_category().message(errno));
        if (static_cast<std::size_t>(got) != size) fail("the ring was cut off");
    }

    // The two addresses change while the process runs.
    void refresh() {
        std::array<std::uint64_t, 2> addresses;
        read(offsetof(FileHeader, written), addresses.data(), sizeof addresses);
        header.written = std::min(addresses[0], addresses[1]);
        header.reserved = addresses[1];
    }

    // The number of the oldest page that is not overwritten.
    std::uint64_t oldestPage() const {
        const std::uint64_t begun = (header.reserved + bodyBytes - 1) / bodyBytes;
        return begun > header.pages ? begun - header.pages : 0;
    }

    // Whether the page, which remains in the buffer, is what it should be.
    bool load(std::uint64_t number) {
        if (number == whole) return true;
        read((1 + number % header.pages) * pageBytes, page.data(), pageBytes);
        std::memcpy(&pageHeader, page.data(), sizeof pageHeader);
        whole = none;
        refresh();
        if (number < oldestPage() || pageHeader.number != number) return false;
        if ((number + 1) * bodyBytes <= header.written) whole = number; // it will not change any more
        return true;
    }

    bool copy(std::uint64_t from, void* target, std::size_t size) {
        auto* bytes = static_cast<char*>(target);
        while (size > 0) {
            const std::size_t offset = from % bodyBytes, here = std::min(size, bodyBytes - offset);
            if (!load(from / bodyBytes)) return false;
            std::copy_n(page.data() + sizeof(PageHeader) + offset, here, bytes);
            bytes += here;
            from += here;
            size -= here;
        }
        return true;
    }

    // Goes on with the first record that begins in the page or a later one.
    void skipTo(std::uint64_t number) {
        const std::uint64_t before = address;
        refresh();
        number = std::max(number, oldestPage());
        address = header.written;
        for (std::uint64_t tried = 0; tried < header.pages && number * bodyBytes < header.written; ++tried, ++number) {
            if (!load(number)) {
                number = std::max(number, oldestPage());
                continue;
            }
            if (pageHeader.first >= bodyBytes || pageHeader.first % 8 != 0) continue;
            address = number * bodyBytes + pageHeader.first;
            break;
        }
        lost += address > before ? address - before : 0;
    }

    bool parse(RecordedEvent& event) {
        RecordHeader record;
        if (!load(address / bodyBytes)) return false;
        const std::int64_t dateOffset = pageHeader.dateOffset;
        if (!copy(address, &record, sizeof record)) return false;
        const std::uint32_t bytes = bytesIn(record.word);
        if (record.word != wordOf(address, bytes) || record.nameSize > longestName || bytes < record.nameSize ||
            bytes - record.nameSize > mostRecordedBytes || bytes - record.nameSize > record.size)
            return false;
        const std::uint64_t end = address + sizeof record + aligned(bytes);
        if (end > header.written) return false;
        event.name.resize(record.nameSize);
        event.data.resize(bytes - record.nameSize);
        const std::uint64_t begin = address + sizeof record;
        if (!copy(begin, event.name.data(), event.name.size()) ||
            !copy(begin + event.name.size(), event.data.data(), event.data.size()))
            return false;
        event.kind = static_cast<EventKind>(record.kind);
        event.flags = record.flags;
        event.number = record.number;
        event.thread = record.thread;
        event.time = record.time;
        // Wraps around instead of overflowing, whatever the file says.
        event.date =
            static_cast<std::int64_t>(static_cast<std::uint64_t>(record.time) + static_cast<std::uint64_t>(dateOffset));
        event.size = record.size;
        address = end;
        return true;
    }

    bool next(RecordedEvent& event) {
        refresh();
        while (address < header.written) {
            if (address / bodyBytes < oldestPage())
                skipTo(oldestPage());
            else if (parse(event))
                return true;
            else
                skipTo(address / bodyBytes + 1);
        }
        return false;
    }

    static constexpr std::uint64_t none = ~std::uint64_t{0};

    const std::string file;
    const io::FileDescriptor descriptor;
    FileHeader header{};
    std::uint64_t address = 0; // of the next record
    std::uint64_t lost = 0;
    std::array<char, pageBytes> page{};
    PageHeader pageHeader{};
    std::uint64_t whole = none; // the page in the buffer, if it will not change any more
};

RingReader::RingReader(const std::string& file) : state_(std::make_unique<State>(file)) {}
RingReader::~RingReader() = default;
RingReader::RingReader(RingReader&&) noexcept = default;
RingReader& RingReader::operator=(RingReader&&) noexcept = default;

RingInfo RingReader::info() const {
    FileHeader header;
    state_->read(0, &header, sizeof header);
    return {.process = textIn(header.process),
            .version = textIn(header.release),
            .pid = header.pid,
            .begin = header.beginDate,
            .bytes = state_->header.pages * bodyBytes,
            .hasEnded = header.ended == 1,
            .boot = textIn(header.boot)};
}

bool RingReader::next(RecordedEvent& event) { return state_->next(event); }

void RingReader::skipAll() {
    state_->refresh();
    state_->address = state_->header.written;
}

std::uint64_t RingReader::lostBytes() const { return state_->lost; }

std::string ringFolder() { return runtimeDirectoryPath() + "/recordings"; }

std::vector<std::string> ringsIn(const std::string& folder) {
    std::vector<std::string> rings;
    std::error_code error;
    for (auto entry = std::filesystem::directory_iterator(folder, error);
         !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename();
        const auto isRing = [&](const char* end) { return name.ends_with(end); };
        if (std::ranges::any_of(ringNames, isRing)) rings.push_back(entry->path());
        if (rings.size() == mostRings) break;
    }
    std::ranges::sort(rings);
    return rings;
}

} // namespace host
