#include <frame/abstract-application.h>

namespace frame {

AbstractApplication::AbstractApplication() = default;

AbstractApplication::~AbstractApplication() = default;

int AbstractApplication::performSetupDone() { return AbstractProcessMember::performSetupDone(); }

} // namespace frame
