// The address region of the flat heap, divided into spans of whole granules.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace host {

// Not thread-safe.
class FlatSpans {
public:
    static constexpr std::size_t granule = std::size_t{64} * 1024;
    static constexpr std::uint32_t none = UINT32_MAX;

    // Reserves the region. Throws std::bad_alloc.
    FlatSpans();

    // Allocates a span of count granules and returns its first granule, or none.
    std::uint32_t take(std::uint32_t count) noexcept;
    void give(std::uint32_t first) noexcept;

    std::uint32_t granules() const { return static_cast<std::uint32_t>(runs_.size()); }
    std::uint32_t length(std::uint32_t first) const { return runs_[first].length; }
    char* address(std::uint32_t index) const { return base_ + index * granule; }
    std::uint32_t indexOf(const void* place) const {
        return static_cast<std::uint32_t>(static_cast<std::size_t>(static_cast<const char*>(place) - base_) / granule);
    }

private:
    // The region consists of runs of granules, each allocated or free; adjacent free runs are always merged.
    struct Run {
        std::uint32_t first;  // valid at a run's last granule
        std::uint32_t length; // valid at a run's first granule, as is free
        bool free;
    };
    void set(std::uint32_t first, std::uint32_t length, bool free) noexcept;

    std::vector<Run> runs_;
    char* base_;
    std::uint32_t lowest_ = 0; // no free run begins before this one
};

} // namespace host
