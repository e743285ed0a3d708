// The exit codes of services. docs/tvctl.md says what they mean.
#pragma once

namespace services {

enum ExitCode { success = 0, failure = 1, usage = 2, badData = 6 };

} // namespace services
