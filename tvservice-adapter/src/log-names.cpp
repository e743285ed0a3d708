// The library's log modules get their names when it is loaded, so that their levels can be set before anything is
// logged.
#include <genrpc/log.h>

namespace {

const bool named = (genrpc::nameLogModules(), true);

} // namespace
