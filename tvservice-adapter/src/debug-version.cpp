#include "ovshell.h"

namespace tvservice {

const char* const debugVersionFile = "/usr/local/debug_version";

} // namespace tvservice
