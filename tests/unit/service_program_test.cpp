// How a service's program exits when it cannot offer its service.
#include "common/exit-code.h"
#include "common/program.h"
#include "support/configuration-folder.h"

#include <host/environment.h>

#include <gtest/gtest.h>

namespace {

using ServiceProgram = ConfigurationFolder;

TEST_F(ServiceProgram, DistinguishesAWrongConfigurationFromOtherFailures) {
    setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
    configure("");
    services::Program program("service", "");
    const char* const arguments[] = {"service"};
    ASSERT_EQ(program.parse(1, arguments), std::nullopt);
    std::string file;
    testing::internal::CaptureStderr();
    const int exitCode = program.run([&] { // after the file was checked
        file = configure("[endpoints]\ntv = \"tcp://host\"\n");
        (void)host::endpointOf("tv");
    });
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "service: " + file + ":2: endpoints.tv: not tcp://HOST:PORT: \"tcp://host\"\n");
    EXPECT_EQ(exitCode, services::badData);
}

} // namespace
