// SPDX-License-Identifier: MIT
// Pieces of the HTTP side that serve one kind of resource each: the page's files and the event stream.
#ifndef VASK_CONSOLE_HTTP_PARTS_H
#define VASK_CONSOLE_HTTP_PARTS_H

#include <httplib.h>
#include <string>

#include "event_hub.h"
#include "room_events.h"

namespace console {

// The media type of the API's replies. cpp-httplib compresses a reply typed exactly
// "application/json" for a client that accepts gzip or brotli (browsers do); the API's replies are
// a few hundred bytes at most, which compression does not shrink, and brotli's default quality
// takes most of a millisecond per reply. With the parameter they go out as they are; the page's
// files and the OpenAPI document, large and rarely fetched, are still compressed.
constexpr const char *kJsonType = "application/json; charset=utf-8";

// Answers GET `request.path` from the folder whose resolved path is `root` ("/" gives index.html).
// Only regular files inside the folder are served, whatever the path holds (".." segments, encoded
// or not, and symbolic links leading out are refused with 404); at most kMaxStaticFile bytes.
constexpr size_t kMaxStaticFile = 1024 * 1024;
void serve_file(const std::string &root, const httplib::Request &request, httplib::Response &response);

// Answers GET /api/events with a text/event-stream: first the current presence, then every record
// of `hub` after the one named by a Last-Event-ID header (or after the last one at connection),
// each as "id: N" and "data: <json>". A comment line goes out after kKeepAlive of silence, which
// also finds clients that went away. 503 when the hub has its maximum of clients.
constexpr std::chrono::seconds kKeepAlive{15};
void stream_events(event_hub &hub, room_events &events, const httplib::Request &request,
                   httplib::Response &response);

} // namespace console

#endif
