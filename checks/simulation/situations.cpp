#include "situations.h"

namespace simulation {

const char* textOf(std::size_t situation) {
    static constexpr const char* texts[] = {
#define SIMULATION_TEXT(name, text) text,
        SIMULATION_SITUATIONS(SIMULATION_TEXT)
#undef SIMULATION_TEXT
    };
    return texts[situation];
}

} // namespace simulation
