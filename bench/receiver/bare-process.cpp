// A process that only loads libraries (LD_PRELOAD). Once they are loaded, it writes a byte to the descriptor in
// BENCH_READY and waits until it is killed.
#include <cstdlib>
#include <unistd.h>

int main() {
    const char* descriptor = std::getenv("BENCH_READY");
    if (descriptor == nullptr || write(std::atoi(descriptor), "r", 1) != 1) return 1;
    for (;;) pause();
}
