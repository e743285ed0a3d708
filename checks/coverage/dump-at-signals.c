// Keeps the counts of a process that ends by abort or a wrong address, as some tests have it: linked to every program.
#include <signal.h>
#include <string.h>

void __gcov_dump(void);

// The signal's own effect comes when this returns: abort raises it again, the access is made again.
static void dump(int number) {
    (void)number;
    __gcov_dump();
}

__attribute__((constructor)) static void atSignals(void) {
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = dump;
    action.sa_flags = SA_RESETHAND;
    sigaction(SIGABRT, &action, 0);
    sigaction(SIGSEGV, &action, 0);
}
