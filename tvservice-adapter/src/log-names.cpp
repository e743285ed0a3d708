// Names the library's log modules when the library is loaded, so that their levels can be set before it logs its first
// line.
#include <genrpc/log.h>

namespace {

const bool named = (genrpc::nameLogModules(), true);

} // namespace
