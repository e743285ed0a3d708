// What tvctl doctor finds about keys and services on other hosts.
#include "support/doctor-fixture.h"
#include "support/remote-endpoint.h"
#include "support/test-where.h"

#include <host/keys.h>
#include <host/log-capture.h>
#include <host/message-queue.h>

#include <memory>
#include <netinet/in.h>
#include <sys/fsuid.h>

namespace {

using namespace std::chrono_literals;
using namespace doctor_test;
using namespace tvctl::doctor;
using testing::Contains;
using testing::Field;

// The TV service at a port of this machine. Both sides use this machine's keys.
class DoctorBetweenHosts : public Doctor {
protected:
    static void set(const char* variable, const std::string& value) { support::RemoteEndpoint::set(variable, value); }
    void serve() {
        queue = std::make_unique<host::MessageQueue>();
        queue->serve(tv.name, tv.messages, 4096);
        queue->start();
    }
    Diagnosis check() const { return checkService(tv, 10s); }
    int listenAt(in_addr_t host) const {
        const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_port = htons(static_cast<in_port_t>(remote.port));
        place.sin_addr.s_addr = htonl(host);
        EXPECT_EQ(0, ::bind(listener, reinterpret_cast<const sockaddr*>(&place), sizeof place));
        EXPECT_EQ(0, ::listen(listener, 1));
        return listener;
    }
    // The error of a process that tries to serve it.
    std::string whyItCannotBeServed() {
        try {
            serve();
            return "";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }

    const host::LogCapture quiet; // hides lines of the service in this process
    const Service tv = services().at(0);
    const support::RemoteEndpoint remote{folder, "TVSERVICE"};
    const host::KeyPair& keys = remote.keys;
    const std::string &keyFile = remote.keyFile, &address = remote.address;
    std::unique_ptr<host::MessageQueue> queue;
};

TEST_F(DoctorBetweenHosts, AcceptsAServiceThatKnowsThisMachine) {
    serve();
    const Diagnosis diagnosis = check();
    EXPECT_THAT(diagnosis, finds(Severity::ok, "tvservice", address + " has the right key"));
    EXPECT_THAT(diagnosis, finds(Severity::ok, "tvservice", "the holder of one key may connect"));
    EXPECT_EQ(problemsIn(diagnosis), 0U);
    ASSERT_EQ(diagnosis.entryPoints.size(), 1U);
    EXPECT_EQ(diagnosis.entryPoints[0].place, address);
    EXPECT_EQ(diagnosis.entryPoints[0].who, "the holder of one key");
    EXPECT_EQ(diagnosis.entryPoints[0].state, "a process listens here");
    EXPECT_THAT(checkKeys(), finds(Severity::ok, "keys.file", keys.publicKey));
}

TEST_F(DoctorBetweenHosts, FindsThatNoServiceAnswers) {
    const Diagnosis diagnosis = check();
    EXPECT_THAT(diagnosis, finds(Severity::wrong, "tvservice", "connecting failed"));
    EXPECT_THAT(diagnosis.entryPoints, Contains(Field(&EntryPoint::state, "nobody listens here")));
}

TEST_F(DoctorBetweenHosts, FindsThatTheServiceRejectsThisMachinesKey) {
    serve();
    const auto others = host::makeKeys();
    set("TVSA_KEY_FILE", folder + "/others.key");
    host::writeKeys(folder + "/others.key", others);
    EXPECT_THAT(check(), finds(Severity::wrong, "tvservice", "rejects this machine's key"));
}

TEST_F(DoctorBetweenHosts, FindsThatTheServiceHasAnotherKey) {
    serve();
    set("TVSA_SERVICE_KEY_TVSERVICE", host::makeKeys().publicKey);
    EXPECT_THAT(check(), finds(Severity::wrong, "tvservice", "no connection to " + address));
}

TEST_F(DoctorBetweenHosts, FindsMalformedKeys) {
    set("TVSA_SERVICE_KEY_TVSERVICE", "short");
    EXPECT_THAT(check(), finds(Severity::wrong, "keys.services.tvservice", "not a key of 44 characters"));
    set("TVSA_CLIENT_KEYS", "short");
    EXPECT_THAT(check(), finds(Severity::wrong, "keys.clients", "TVSA_CLIENT_KEYS: not a key of 44 characters"));
    EXPECT_THAT(check(), finds(Severity::wrong, "keys.clients", "names no client"));
}

TEST_F(DoctorBetweenHosts, FindsAServiceWithoutKeys) {
    set("TVSA_CLIENT_KEYS", "");
    set("TVSA_SERVICE_KEY_TVSERVICE", "");
    const Diagnosis diagnosis = check();
    EXPECT_THAT(diagnosis, finds(Severity::wrong, "tvservice", address + " has no keys"));
    EXPECT_TRUE(diagnosis.entryPoints.empty());
}

TEST_F(DoctorBetweenHosts, WarnsOfAServiceAtEveryAddress) {
    const std::string everywhere = "tcp://*:" + std::to_string(remote.port);
    set("TVSA_ENDPOINT_TVSERVICE", everywhere);
    set("TVSA_SERVICE_KEY_TVSERVICE", "");
    set("TVSA_CLIENT_KEYS", keys.publicKey + ',' + host::makeKeys().publicKey + ',' + keys.publicKey);
    serve();
    const Diagnosis diagnosis = check();
    EXPECT_THAT(diagnosis, finds(Severity::warning, "tvservice", "at every address of this machine"));
    EXPECT_THAT(diagnosis, finds(Severity::warning, "keys.clients", "has a key twice: " + keys.publicKey));
    ASSERT_EQ(diagnosis.entryPoints.size(), 1U);
    EXPECT_EQ(diagnosis.entryPoints[0].who, "the holders of 2 keys");
    EXPECT_EQ(diagnosis.entryPoints[0].state, "a process listens here");
    set("TVSA_SERVICE_KEY_TVSERVICE", keys.publicKey);
    EXPECT_THAT(check(), finds(Severity::wrong, "tvservice", "not to connect to"));
    set("TVSA_CLIENT_KEYS", "");
    EXPECT_THAT(check(), finds(Severity::wrong, "tvservice", "keys.clients is not configured"));
}

TEST_F(DoctorBetweenHosts, FindsAKeyFileThatOthersMayRead) {
    ASSERT_EQ(chmod(keyFile.c_str(), 0644), 0);
    EXPECT_THAT(checkKeys(), finds(Severity::wrong, "keys.file", keyFile + ": open to other users"));
    EXPECT_THAT(check(), finds(Severity::warning, "tvservice", "was not tried: this machine has no valid keys"));
    set("TVSA_KEY_FILE", "");
    EXPECT_THAT(checkKeys(), finds(Severity::wrong, "keys.file", "not configured"));
}

TEST_F(DoctorBetweenHosts, WarnsOfKeysThatAreNotUsed) {
    set("TVSA_ENDPOINT_TVSERVICE", "");
    const Diagnosis diagnosis = checkKeys();
    for (const char* name : {"keys.file", "keys.clients", "keys.services.tvservice"})
        EXPECT_THAT(diagnosis, finds(Severity::warning, name, "not used"));
}

TEST_F(DoctorBetweenHosts, FindsAnAddressAtWhichTheServiceWouldNotStart) {
    set("TVSA_SERVICE_KEY_TVSERVICE", "");
    for (const char* endpoint :
         {"tcp://foo", "tcp://192.0.2.1:7000", "tcp://no-such.invalid:7000", "tcp://[2001:db8::1]:7000"}) {
        set("TVSA_ENDPOINT_TVSERVICE", endpoint);
        const std::string why = whyItCannotBeServed();
        ASSERT_NE(why, "") << endpoint;
        const Diagnosis diagnosis = check();
        EXPECT_THAT(diagnosis, finds(Severity::wrong, "tvservice", why));
        EXPECT_EQ(problemsIn(diagnosis), 1U);
        EXPECT_TRUE(diagnosis.entryPoints.empty());
    }
}

TEST_F(DoctorBetweenHosts, TreatsARemoteAddressWithAKeyAsAServiceInUse) {
    set("TVSA_ENDPOINT_TVSERVICE", "tcp://192.0.2.1:7000");
    set("TVSA_KEY_FILE", ""); // so that the doctor does not connect
    const Diagnosis diagnosis = check();
    EXPECT_THAT(diagnosis, finds(Severity::warning, "tvservice", "was not tried: this machine has no valid keys"));
    EXPECT_EQ(problemsIn(diagnosis), 1U);
    EXPECT_TRUE(diagnosis.entryPoints.empty());
}

TEST_F(DoctorBetweenHosts, WarnsOfAServiceThatDoesNotRun) {
    set("TVSA_SERVICE_KEY_TVSERVICE", "");
    EXPECT_THAT(check(), finds(Severity::warning, "tvservice", "not running: nobody listens at " + address));
    serve();
    EXPECT_EQ(problemsIn(check()), 0U);
}

TEST_F(DoctorBetweenHosts, ReportsThatItDoesNotCompareMessages) {
    set("TVSA_SERVICE_KEY_TVSERVICE", "");
    serve();
    EXPECT_THAT(check(), finds(Severity::ok, "tvservice", "its messages are not compared here"));
    set("TVSA_SERVICE_KEY_TVSERVICE", keys.publicKey);
    const Diagnosis compared = check();
    EXPECT_THAT(compared, finds(Severity::ok, "tvservice", "and the same messages"));
    EXPECT_THAT(compared, testing::Not(finds(Severity::ok, "tvservice", "not compared")));
}

TEST_F_WHERE(support::isRoot(), DoctorBetweenHosts, FindsAListenerOfAnotherUser) {
    set("TVSA_SERVICE_KEY_TVSERVICE", "");
    setfsuid(7); // changes this thread's file system user, which owns the new socket
    const int listener = listenAt(INADDR_LOOPBACK);
    setfsuid(geteuid());
    const Diagnosis diagnosis = check();
    EXPECT_THAT(diagnosis, finds(Severity::wrong, "tvservice", address + " is served by a process of user 7"));
    EXPECT_EQ(diagnosis.findings.size(), 1U);
    ASSERT_EQ(diagnosis.entryPoints.size(), 1U);
    EXPECT_EQ(diagnosis.entryPoints[0].who, "unknown");
    EXPECT_EQ(diagnosis.entryPoints[0].state, "a process of user 7 listens here");
    ::close(listener);
}

TEST_F(DoctorBetweenHosts, DistinguishesListenersAtOtherAddresses) {
    set("TVSA_SERVICE_KEY_TVSERVICE", "");
    const int elsewhere = listenAt(INADDR_LOOPBACK + 1);
    EXPECT_THAT(check().entryPoints, Contains(Field(&EntryPoint::state, "nobody listens here")));
    set("TVSA_ENDPOINT_TVSERVICE", "tcp://*:" + std::to_string(remote.port));
    EXPECT_THAT(check().entryPoints, Contains(Field(&EntryPoint::state, "nobody listens here")));
    ::close(elsewhere);
    const int everywhere = listenAt(INADDR_ANY);
    EXPECT_THAT(check().entryPoints, Contains(Field(&EntryPoint::state, "a process listens here")));
    set("TVSA_ENDPOINT_TVSERVICE", address);
    EXPECT_THAT(check().entryPoints, Contains(Field(&EntryPoint::state, "a process listens here")));
    ::close(everywhere);
}

TEST_F(DoctorBetweenHosts, WarnsOfAPortThatChanges) {
    set("TVSA_SERVICE_KEY_TVSERVICE", "");
    set("TVSA_ENDPOINT_TVSERVICE", "tcp://127.0.0.1:0");
    const Diagnosis diagnosis = check();
    EXPECT_THAT(diagnosis, finds(Severity::warning, "tvservice", "gets another port with each start"));
    EXPECT_EQ(problemsIn(diagnosis), 1U);
}

TEST_F(DoctorBetweenHosts, FindsAMalformedAddress) {
    set("TVSA_ENDPOINT_TVSERVICE", "tcp://127.0.0.1");
    EXPECT_THAT(check(), finds(Severity::wrong, "tvservice", "not tcp://HOST:PORT"));
}

} // namespace
