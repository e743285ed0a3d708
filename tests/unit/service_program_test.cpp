// How a service's program exits when it cannot offer its service.
#include "support/configuration-folder.h"

#include <host/environment.h>
#include <tvservice-adapter/service/exit-code.h>
#include <tvservice-adapter/service/program.h>

#include <gtest/gtest.h>

namespace {

using ServiceProgram = ConfigurationFolder;

TEST_F(ServiceProgram, DistinguishesAWrongConfigurationFromOtherFailures) {
    setenv("RUNTIME_DIRECTORY", folder.c_str(), 1);
    configure("");
    services::Program program("service", "");
    const char* const arguments[] = {"service"};
    ASSERT_EQ(program.parse(1, arguments), std::nullopt);
    struct : services::Service {
        void offer(host::MessageQueue&) override {
            change();
            (void)host::endpointOf("tv");
        }
        std::function<void()> change;
    } service;
    std::string file;
    service.change = [&] { file = configure("[endpoints]\ntv = \"tcp://host\"\n"); }; // after the file was checked
    testing::internal::CaptureStderr();
    const int exitCode = program.run(service);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "service: " + file + ":2: endpoints.tv: not tcp://HOST:PORT: \"tcp://host\"\n");
    EXPECT_EQ(exitCode, services::badData);
}

} // namespace
