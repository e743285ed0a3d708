// A process that does nothing but have libraries loaded (LD_PRELOAD): says so with a byte to the descriptor in
// BENCH_READY, then waits for its end.
#include <cstdlib>
#include <unistd.h>

int main() {
    const char* descriptor = std::getenv("BENCH_READY");
    if (descriptor == nullptr || write(std::atoi(descriptor), "r", 1) != 1) return 1;
    for (;;) pause();
}
