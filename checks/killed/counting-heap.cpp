// Intercepts the C library's heap and counts what is allocated and not yet freed. This includes operator new, but not
// the flat heap and other mappings.
#include "heap-count.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

// The C library's own names: dlsym would allocate before these functions are available.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* block);
}

namespace {

using killed::HeapCount;

HeapCount initialCount;
HeapCount* counts = &initialCount;

// Runs before main, and so before there are other threads.
[[gnu::constructor]] void mapCount() {
    const char* const folder = std::getenv("STATE_DIRECTORY");
    if (folder == nullptr) return;
    const std::string path = std::string(folder) + '/' + killed::heapCountFileOf(program_invocation_short_name);
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file < 0) return;
    void* const page = ftruncate(file, sizeof(HeapCount)) == 0
                           ? mmap(nullptr, sizeof(HeapCount), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0)
                           : MAP_FAILED;
    close(file);
    if (page == MAP_FAILED) return;
    auto* const mapped = static_cast<HeapCount*>(page);
    mapped->bytes = initialCount.bytes.load();
    mapped->blocks = initialCount.blocks.load();
    counts = mapped;
}

void count(std::int64_t bytes, std::int64_t blocks) {
    counts->bytes.fetch_add(bytes, std::memory_order_relaxed);
    counts->blocks.fetch_add(blocks, std::memory_order_relaxed);
}
std::int64_t sizeOf(void* block) { return static_cast<std::int64_t>(malloc_usable_size(block)); }
void* counted(void* block) {
    if (block != nullptr) count(sizeOf(block), 1);
    return block;
}

} // namespace

#define VISIBLE extern "C" [[gnu::visibility("default")]]

VISIBLE void* malloc(size_t size) noexcept { return counted(__libc_malloc(size)); }

VISIBLE void* calloc(size_t number, size_t size) noexcept { return counted(__libc_calloc(number, size)); }

VISIBLE void free(void* block) noexcept {
    if (block == nullptr) return;
    count(-sizeOf(block), -1);
    __libc_free(block);
}

VISIBLE void* realloc(void* block, size_t size) noexcept {
    if (block == nullptr) return malloc(size);
    const std::int64_t before = sizeOf(block);
    void* const result = __libc_realloc(block, size);
    if (result != nullptr)
        count(sizeOf(result) - before, 0);
    else if (size == 0) // freed; on an error the block remains
        count(-before, -1);
    return result;
}

VISIBLE void* memalign(size_t alignment, size_t size) noexcept { return counted(__libc_memalign(alignment, size)); }

VISIBLE void* aligned_alloc(size_t alignment, size_t size) noexcept { return memalign(alignment, size); }

VISIBLE int posix_memalign(void** result, size_t alignment, size_t size) noexcept {
    if (alignment % sizeof(void*) != 0 || alignment == 0 || (alignment & (alignment - 1)) != 0) return EINVAL;
    void* const block = memalign(alignment, size);
    if (block == nullptr) return ENOMEM;
    *result = block;
    return 0;
}
