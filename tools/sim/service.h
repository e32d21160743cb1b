// The "external_device" service of the simulator: its methods and their state.
#ifndef VASK_SIM_SERVICE_H
#define VASK_SIM_SERVICE_H

#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "vask_bus.h"
#include "voting.h"

namespace vask_sim {

class service {
public:
    explicit service(bus_client *client);

    // The bus method handler; `user` is the service.
    static int handle(bus_client *client, void *user, const char *method, const char *body,
                      int body_length, char *reply, int capacity);

private:
    using method = std::function<std::string(const std::string &body)>;

    std::string answer(const std::string &name, const std::string &body);
    std::string voting_call(int (vote::*action)(), bool with_results);
    void emit_voting_results();

    bus_client *client_;
    std::mutex mutex_;
    std::map<std::string, method> methods_;
    vote vote_;
};

} // namespace vask_sim

#endif
