// SPDX-License-Identifier: MIT
// A broker that ends the session with a reason code, played by a scripted peer on a real socket.
//
// Built and run apart from the other bus tests: libmosquitto 2.0.11's handling of a DISCONNECT sent
// by the broker (do_client_disconnect, a function without a symbol in Debian's stripped library)
// unlocks a mutex it never locked. Harmless with glibc's default mutexes, but the thread sanitizer
// reports it, and it cannot be suppressed by that function's name; this one process runs with the
// sanitizer's mutex-misuse reports off instead, so that no other test hides a fault of ours.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "log_capture.h"
#include "process.h"
#include "vask_bus.h"

// mosquitto 2.0.11 closes a taken-over connection without telling why; brokers that send the
// MQTT v5 reason do so with a DISCONNECT packet, played here by a scripted peer on a real socket.
TEST(BusSessionTakeover, DisconnectWithReason142_ShouldBeLoggedAsSuch)
{
    int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length), 0);
    setenv("VASK_BUS_URL", ("mqtt://127.0.0.1:" + std::to_string(ntohs(address.sin_port))).c_str(), 1);

    std::thread peer([listener] {
        int connection = accept(listener, nullptr, nullptr);
        unsigned char header[2];
        // CONNECT: fixed header, then as many bytes as its one-byte remaining length says.
        if (recv(connection, header, 2, MSG_WAITALL) == 2 && (header[0] & 0xf0) == 0x10) {
            std::vector<unsigned char> rest(header[1] & 0x7f);
            recv(connection, rest.data(), rest.size(), MSG_WAITALL);
            const unsigned char connack[] = {0x20, 0x03, 0x00, 0x00, 0x00};
            const unsigned char taken_over[] = {0xe0, 0x02, 0x8e, 0x00};
            send(connection, connack, sizeof connack, MSG_NOSIGNAL);
            send(connection, taken_over, sizeof taken_over, MSG_NOSIGNAL);
        }
        shutdown(connection, SHUT_WR);
        char drain[256];
        while (recv(connection, drain, sizeof drain, 0) > 0) {
        }
        close(connection);
    });

    vask_test::log_capture capture;
    ASSERT_EQ(bus_init(), BUS_OK);
    bus_client *victim = bus_client_new("victim");
    ASSERT_NE(victim, nullptr);
    bus_connect(victim, 0);
    EXPECT_TRUE(vask_test::eventually([&] {
        for (const auto &line : capture.lines())
            if (line.message.rfind("session taken over: another connection uses client id victim-", 0) == 0)
                return true;
        return false;
    }));
    for (const auto &line : capture.lines()) {
        if (line.message.rfind("session taken over", 0) == 0) {
            EXPECT_EQ(line.level, 0);
            EXPECT_EQ(line.source, "vask_bus");
            EXPECT_EQ(line.function, "on_disconnect");
            EXPECT_EQ(line.module, BUS_LOG_MODULE);
        }
    }
    bus_client_free(victim);
    bus_cleanup();
    peer.join();
    close(listener);
}
