// The results in a service's answers, under their names in this part of the tree.
#pragma once

#include <tvservice/results.h>

namespace services {

namespace result = tvservice::result;

} // namespace services
