// SPDX-License-Identifier: MIT
#include "fake_service.h"

#include <cstring>

namespace vask_test {

fake_service::fake_service(const char *service) : service_(service)
{
    if (bus_init() != BUS_OK)
        return;
    client_ = bus_client_new("fake_service");
    if (client_ == nullptr)
        return;
    registered_ = bus_service_register(client_, service, handle, this) == BUS_OK;
    ready_ = registered_ && bus_connect(client_, 0) == BUS_OK;
}

fake_service::~fake_service()
{
    release();
    if (client_ != nullptr) {
        unregister();
        bus_client_free(client_);
    }
    bus_cleanup();
}

void fake_service::unregister()
{
    if (registered_)
        bus_service_unregister(client_, service_.c_str());
    registered_ = false;
}

void fake_service::reply(const std::string &method, const std::string &text)
{
    std::lock_guard<std::mutex> hold(mutex_);
    replies_[method] = text;
    silent_.erase(method);
}

void fake_service::no_reply(const std::string &method)
{
    std::lock_guard<std::mutex> hold(mutex_);
    silent_[method] = true;
}

void fake_service::hold(const std::string &method)
{
    std::lock_guard<std::mutex> hold(mutex_);
    held_method_ = method;
    released_ = false;
}

bool fake_service::held()
{
    std::lock_guard<std::mutex> hold(mutex_);
    return waiting_;
}

void fake_service::release()
{
    std::lock_guard<std::mutex> hold(mutex_);
    held_method_.clear();
    released_ = true;
    gate_.notify_all();
}

std::vector<received_call> fake_service::calls()
{
    std::lock_guard<std::mutex> hold(mutex_);
    return calls_;
}

int fake_service::handle(bus_client *, void *user, const char *method, const char *body, int body_length,
                         char *reply, int capacity)
{
    auto *self = static_cast<fake_service *>(user);
    std::unique_lock<std::mutex> hold(self->mutex_);
    self->calls_.push_back({method, std::string(body, static_cast<size_t>(body_length)), body_length});
    if (self->held_method_ == method) {
        self->waiting_ = true;
        self->gate_.wait(hold, [self] { return self->released_; });
        self->waiting_ = false;
    }
    if (self->silent_.count(method) != 0)
        return -1;
    auto found = self->replies_.find(method);
    std::string text;
    if (found != self->replies_.end())
        text = found->second;
    else if (strcmp(method, "echo") == 0)
        text.assign(body, static_cast<size_t>(body_length));
    else
        text = "{\"code\":0}";
    if (static_cast<int>(text.size()) > capacity)
        return -1;
    memcpy(reply, text.data(), text.size());
    return static_cast<int>(text.size());
}

} // namespace vask_test
