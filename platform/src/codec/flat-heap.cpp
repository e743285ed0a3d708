// The flat heap of hosts whose pointers are wider than 32 bits.
//
// Each thread caches free blocks of every size class, so that most allocations and releases use no shared data.
#include <cstdint>

#if UINTPTR_MAX > UINT32_MAX

#include "flat-central.h"

#include <host/marshaller.h>
#include <vdl/flat.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <pthread.h>
#include <thread-safety/mutex.h>

namespace host {
namespace {

// Written by one thread at a time, read by any.
class Counter {
public:
    void add(std::int64_t change) {
        value_.store(value_.load(std::memory_order_relaxed) + change, std::memory_order_relaxed);
    }
    std::int64_t value() const { return value_.load(std::memory_order_relaxed); }

private:
    std::atomic<std::int64_t> value_ = 0;
};

// Free blocks by class, and the net numbers of blocks and bytes allocated through this cache.
class Cache {
public:
    void* allocate(std::size_t size) {
        const bool small = size <= largestClassSize - sizeof(Header);
        Header* block = small ? pop(classOf(size + sizeof(Header))) : large(size);
        block->handOut(static_cast<std::uint32_t>(size));
        blocks.add(1);
        bytes.add(static_cast<std::int64_t>(size));
        return block->payload();
    }

    void free(Header* block) noexcept {
        const std::uint32_t size = block->size();
        blocks.add(-1);
        bytes.add(-static_cast<std::int64_t>(size));
        block->takeBack();
        const unsigned sizeClass = block->sizeClass();
        if (sizeClass == largeClass) return FlatCentral::instance().giveLarge(block, size);
        List& list = lists_[sizeClass];
        block->setNext(list.head);
        list.head = block;
        if (++list.count > 2 * batchOfClass[sizeClass]) flush(list, batchOfClass[sizeClass]);
    }

    void flush() noexcept {
        for (List& list : lists_) flush(list, list.count);
    }

    Counter blocks, bytes;
    Cache* next = nullptr; // in the registry
    Cache* previous = nullptr;

private:
    struct List {
        Header* head = nullptr;
        std::uint32_t count = 0;
    };

    Header* pop(unsigned sizeClass) {
        List& list = lists_[sizeClass];
        if (!list.head) refill(list, sizeClass);
        Header* block = list.head;
        list.head = block->next();
        --list.count;
        return block;
    }

    [[gnu::noinline]] void refill(List& list, unsigned sizeClass) {
        FlatCentral& central = FlatCentral::instance();
        list.count = central.take(sizeClass, batchOfClass[sizeClass], list.head);
        if (list.count > 0) return;
        flush(); // blocks of other classes may add up to a span
        list.count = central.take(sizeClass, 1, list.head);
        if (list.count == 0) throw std::bad_alloc();
    }

    [[gnu::noinline]] Header* large(std::size_t size) {
        FlatCentral& central = FlatCentral::instance();
        if (Header* block = central.takeLarge(size)) return block;
        flush();
        if (Header* block = central.takeLarge(size)) return block;
        throw std::bad_alloc();
    }

    [[gnu::noinline]] static void flush(List& list, std::uint32_t count) noexcept {
        if (count == 0) return;
        Header* const first = list.head;
        Header* last = first;
        for (std::uint32_t i = 1; i < count; ++i) last = last->next();
        list.head = last->next();
        list.count -= count;
        last->setNext(nullptr);
        FlatCentral::instance().give(first);
    }

    List lists_[sizeClasses];
};

// Releases the cache of a thread that ends.
void endCache(void* cache) noexcept;

// The caches of all threads. Never destroyed, because threads may outlive main.
struct Registry {
    thread_safety::Mutex mutex;
    Cache* first TVSA_GUARDED_BY(mutex) = nullptr; // the mutex guards the caches' links, too
    // Used by threads that are ending; also holds the counts of those that have ended.
    Cache shared TVSA_GUARDED_BY(mutex);
    // Calls endCache at a thread's end. A thread-local object with a destructor would not do: the process ends if there
    // is no memory to register one.
    pthread_key_t atThreadEnd{};
    const bool hasThreadEndHook = pthread_key_create(&atThreadEnd, endCache) == 0;

    static Registry& instance() {
        static Registry& registry = *new Registry;
        return registry;
    }
    void enter(Cache& cache) {
        thread_safety::LockGuard lock(mutex);
        cache.next = first;
        if (first) first->previous = &cache;
        first = &cache;
    }
    void leave(Cache& cache) {
        thread_safety::LockGuard lock(mutex);
        (cache.previous ? cache.previous->next : first) = cache.next;
        if (cache.next) cache.next->previous = cache.previous;
        shared.blocks.add(cache.blocks.value());
        shared.bytes.add(cache.bytes.value());
    }
};

// Plain variables in the initial thread-local block: reading them takes one instruction.
[[gnu::tls_model("initial-exec")]] constinit thread_local Cache* ownCache = nullptr;
[[gnu::tls_model("initial-exec")]] constinit thread_local bool ending = false;

void endCache(void* ended) noexcept {
    ending = true;
    ownCache = nullptr;
    auto* const cache = static_cast<Cache*>(ended);
    cache->flush();
    Registry::instance().leave(*cache);
    delete cache;
}

// Makes a cache for this thread until its end; null if that is not possible.
Cache* makeCache(Registry& registry) noexcept {
    if (ending || !registry.hasThreadEndHook) return nullptr;
    auto* cache = new (std::nothrow) Cache;
    if (!cache) return nullptr;
    if (pthread_setspecific(registry.atThreadEnd, cache) != 0) {
        delete cache;
        return nullptr;
    }
    registry.enter(*cache);
    return ownCache = cache;
}

// Calls use(cache) with a new cache for the thread, or with the shared one if there cannot be one.
template <class Use> [[gnu::noinline]] auto withoutCache(Use use) {
    Registry& registry = Registry::instance();
    if (Cache* const cache = makeCache(registry)) return use(*cache);
    thread_safety::LockGuard lock(registry.mutex);
    return use(registry.shared);
}

} // namespace

FlatHeapUsage flatHeapUsage() {
    const std::uint64_t limit = FlatCentral::instance().limit();
    Registry& registry = Registry::instance();
    thread_safety::LockGuard lock(registry.mutex);
    std::int64_t blocks = registry.shared.blocks.value(), bytes = registry.shared.bytes.value();
    for (const Cache* cache = registry.first; cache; cache = cache->next) {
        blocks += cache->blocks.value();
        bytes += cache->bytes.value();
    }
    // While other threads allocate and free, a release may be counted before its allocation.
    const auto counted = [](std::int64_t sum) { return static_cast<std::uint64_t>(std::max<std::int64_t>(sum, 0)); };
    return {counted(blocks), counted(bytes), limit};
}

} // namespace host

void* vdlFlatAlloc(std::size_t size) {
    const std::size_t wanted = size == 0 ? 1 : size;
    if (host::Cache* cache = host::ownCache) return cache->allocate(wanted);
    return host::withoutCache([wanted](host::Cache& cache) { return cache.allocate(wanted); });
}

void vdlFlatFree(void* block) noexcept {
    if (!block) return;
    host::Header* const header = host::Header::of(block);
    if (host::Cache* cache = host::ownCache) return cache->free(header);
    host::withoutCache([header](host::Cache& cache) { cache.free(header); });
}

#endif
