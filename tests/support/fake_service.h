// SPDX-License-Identifier: MIT
// An "external_device" service inside the test process: canned replies, recorded requests.
#ifndef VASK_TEST_FAKE_SERVICE_H
#define VASK_TEST_FAKE_SERVICE_H

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "vask_bus.h"

namespace vask_test {

struct received_call {
    std::string method;
    std::string body;
    int body_length = 0;
};

class fake_service {
public:
    // Registers `service` on a client of its own and connects it to the broker of VASK_BUS_URL.
    explicit fake_service(const char *service = "external_device");
    ~fake_service();

    bool ready() const { return ready_; }
    bus_client *client() const { return client_; }

    // The reply to `method`. Without a canned reply, "echo" answers with the request body and every
    // other method with {"code":0}.
    void reply(const std::string &method, const std::string &text);
    // `method` gets no reply at all.
    void no_reply(const std::string &method);

    // Requests to `method` wait in the handler until release(); held() tells that one is waiting.
    void hold(const std::string &method);
    bool held();
    void release();

    std::vector<received_call> calls();
    void unregister();

private:
    static int handle(bus_client *, void *user, const char *method, const char *body, int body_length,
                      char *reply, int capacity);
    std::string service_;
    bus_client *client_ = nullptr;
    bool ready_ = false;
    bool registered_ = false;
    std::mutex mutex_;
    std::map<std::string, std::string> replies_;
    std::map<std::string, bool> silent_;
    std::vector<received_call> calls_;
    std::string held_method_;
    bool waiting_ = false;
    bool released_ = false;
    std::condition_variable gate_;
};

} // namespace vask_test

#endif
